#include "map_file.h"

#include <filesystem>
#include <system_error>

#include "bytes.h"
#include "error.h"

namespace fs = std::filesystem;

namespace {

// Whether two names lead to one file, be it there already or not. Devices may be shared.
bool isSameFile(const fs::path& one, const fs::path& other)
{
    std::error_code none;
    if (fs::exists(one, none) && !fs::is_regular_file(one, none) && !fs::is_fifo(one, none))
        return false;
    const auto place = [&](const fs::path& path) {
        return fs::weakly_canonical(fs::absolute(path, none), none);
    };
    return fs::equivalent(one, other, none) || place(one) == place(other);
}

} // namespace

MapFile::MapFile(const Options& options) : name(options.speedMapOut)
{
    const fs::path path = pathOf(name, "/dev/stdout");
    const auto refuse = [&](const fs::path& other, const char* what) {
        if (isSameFile(path, other))
            throw FileError(name,
                            std::string("is ") + what + ": give another name for --speed-map-out");
    };
    refuse(pathOf(options.input, "/dev/stdin"), "the input file itself");
    refuse(pathOf(options.output, "/dev/stdout"), "OUT as well");
    if (!options.speedMapName.empty())
        refuse(options.speedMapName, "the speed map that is read");
    if (!isStream(name))
        file.emplace(name, options.input, options.overwrite);
}

void MapFile::write(const SpeedMap& speed)
{
    const std::string text = speed.text();
    if (name == kPipe)
        return writeOutput(text.data(), text.size());
    Bytes bytes = Bytes::output(file ? file->temporary() : fs::path(name), name);
    bytes.put(text);
    if (file) {
        bytes.sync();
        file->keep();
    }
}
