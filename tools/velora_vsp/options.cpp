#include "options.h"

#include <cmath>
#include <cstdlib>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include <velora/vsp.h>

namespace {

constexpr double kSlowest = 0.125;
constexpr double kFastest = 8.0;
constexpr int kWrongCommandLine = 2;

constexpr char kDescription[] =
    "Plays a sound file faster or slower without changing its pitch, and writes the result.\n"
    "The extension of OUT chooses the kind of file; sample format and rate stay as they are.";

constexpr char kFooter[] =
    "Examples:\n"
    "  velora-vsp talk.wav brisk.flac --speed 1.5      one and a half times as fast\n"
    "  velora-vsp song.flac practice.wav -s 0.75       three quarters of the speed\n"
    "  velora-vsp riff.wav slow.wav -s 0.5 -k          half speed at the same pitch\n"
    "\n"
    "Exactly 0.5, 0.25 and 0.125 lower the pitch by one, two or three octaves, as on a slowed\n"
    "tape, unless --keep-pitch is given. Speeds up to 0.5 sound darker and quieter on purpose:\n"
    "they pass a low-pass at 2 kHz (1 kHz above 48000 Hz, 500 Hz above 96000 Hz) and a gain of\n"
    "-13 dB. With --keep-pitch, 0.5 counts as just above that limit, so it passes neither.\n"
    "At speed 1 the samples come out as they went in.\n"
    "\n"
    "Input: mono or stereo, 8000 to 192000 Hz, any kind of file that libsndfile reads.";

std::optional<double> parseSpeed(const std::string& text)
{
    char* end = nullptr;
    const double speed = std::strtod(text.c_str(), &end);
    const bool isNumber = end != text.c_str() && *end == '\0';
    const bool isInRange = speed >= kSlowest && speed <= kFastest; // "not a number" isn't
    return isNumber && isInRange ? std::optional(speed) : std::nullopt;
}

std::string checkSpeed(const std::string& text)
{
    if (parseSpeed(text))
        return {};
    return "'" + text + "' is not a speed: give a number from 0.125 to 8 " +
           "(1 is normal, 0.5 half, 2 double speed)";
}

void chooseEngineSpeed(Options& options, bool keepPitch)
{
    options.engineSpeed = float(options.speed);
    if (options.engineSpeed == 1.0f)
        options.speed = 1.0;
    const float s = options.engineSpeed;
    options.pitchDrops = s == 0.5f || s == 0.25f || s == 0.125f;
    if (options.pitchDrops && keepPitch) {
        options.engineSpeed = std::nextafter(s, 1.0f);
        options.pitchDrops = false;
    }
}

std::string engineVersion()
{
    const std::unique_ptr<Velora_VSP_Interface, void (*)(Velora_VSP_Interface*)> engine(
        Velora_VSP_Factory::Create(), Velora_VSP_Factory::Destroy);
    return engine->Get_Version();
}

} // namespace

Options readOptions(int argc, const char* const* argv)
{
    Options options;
    std::string input;
    std::string output;
    std::string speed;
    bool keepPitch = false;

    CLI::App app(kDescription, "velora-vsp");
    app.footer(kFooter);
    app.add_option("IN", input, "The sound file to play")->required();
    app.add_option("OUT", output, "The file to write")->required();
    app.add_option("-s,--speed", speed, "0.125 to 8: 0.5 is half, 2 is double speed")
        ->required()
        ->type_name("S")
        ->check(checkSpeed, "", "speed");
    app.add_flag("-k,--keep-pitch", keepPitch, "Keep the pitch at speeds 0.5, 0.25 and 0.125 too");
    app.add_flag("-f,--force", options.overwrite, "Overwrite OUT if it exists");
    app.set_version_flag("--version", engineVersion, "Print the engine's version and exit");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        options.exitCode = app.exit(error) == 0 ? 0 : kWrongCommandLine;
        options.finished = true;
        return options;
    }
    options.input = input;
    options.output = output;
    options.speed = *parseSpeed(speed);
    chooseEngineSpeed(options, keepPitch);
    return options;
}
