# Shared by the scripts: where the project is, and how its Debian packages get onto the machine.

set -euo pipefail
project_root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$project_root"

# Installs those of the named Debian packages that are missing, as root or through sudo.
need_packages() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Installing: ${missing[*]}" >&2
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "Please install as root: apt-get install ${missing[*]}" >&2; exit 1; }
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -qq >&2
    DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

ffmpeg_packages=(libavformat-dev libavcodec-dev libavutil-dev libswresample-dev)
tool_packages=(g++ cmake ninja-build pkg-config libcli11-dev libsdl2-dev "${ffmpeg_packages[@]}")
build_packages=("${tool_packages[@]}" libgtest-dev nlohmann-json3-dev libsndfile1-dev ffmpeg)
figure_packages=(python3 python3-numpy python3-scipy python3-soundfile)
benchmark_packages=(g++ cmake ninja-build libbenchmark-dev libsoundtouch-dev librubberband-dev libsonic-dev)

# build_preset PRESET [TARGET [OPTION...]] configures a preset (once, with the options) and builds it or one target.
build_preset() {
    [ -f "build/$1/build.ninja" ] || cmake --preset "$1" "${@:3}" >&2
    cmake --build --preset "$1" --target "${2:-all}" >&2
}
