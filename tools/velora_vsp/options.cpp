#include "options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>
#include <thread>

#include <CLI/CLI.hpp>

#include <velora/stream.hpp>
#include <velora/vsp.h>

namespace {

using AnyStream = velora::Stream<>; // limits are the same for every format

constexpr int kWrongCommandLine = 2;

constexpr char kDescription[] =
    "Plays sound and films faster or slower without changing the pitch, and writes the result.\n"
    "The extension of OUT chooses the kind of file; codec, sample format, rate and channels stay\n"
    "where it has room for them.";

constexpr char kFooter[] =
    "Many files: with -o DIR each name is of a file to play, and its result goes into DIR by the\n"
    "same name; folders keep their shape. Files that can't be played are named, the others go on.\n"
    "\n"
    "Examples:\n"
    "  velora-vsp talk.wav brisk.flac --speed 1.5       one and a half times as fast\n"
    "  velora-vsp song.flac practice.wav -s 0.75        three quarters of the speed\n"
    "  velora-vsp riff.wav slow.wav -s 0.5 -k           half speed at the same pitch\n"
    "  velora-vsp lecture.mp4 brisk.mp4 -s 1.5          picture, subtitles and chapters in step\n"
    "  velora-vsp talk.mp3 out.mp3 -s 1.2 --silence-speed 4\n"
    "                                                   pauses of speech go faster\n"
    "  velora-vsp film.mp4 part.mp4 -s 1 --from 1:00 --to 2:30\n"
    "                                                   a minute and a half of it\n"
    "  velora-vsp -s 1.5 -o brisk -r podcasts           a folder of them\n"
    "  velora-vsp song.wav - -s 0.8 | aplay             into a player\n"
    "  velora-vsp - - --format mp3 -s 2 <a.mp3 >b.mp3   other kinds of file through pipes\n"
    "  velora-vsp - - -s 2 --raw 48000:2:s16 <a >b      samples without a header\n"
    "  velora-vsp song.wav out.wav --speed-map FILE     with lines such as these in FILE:\n"
    "                                                     0:00  1.0\n"
    "                                                     1:30  0.75   # the hard part\n"
    "\n"
    "Speed map: a time in the input (seconds, m:ss or h:mm:ss, with or without a fraction) and\n"
    "the speed from there on, or two with \"to\" between them where it glides up to the next "
    "line;\n"
    "--speed-map-out writes such a file before the sound (- is standard output). Changes fall\n"
    "within a hop (10 to 16 ms) of their time: counted in the input below speed 1, in the output\n"
    "above it.\n"
    "\n"
    "Pitch: exactly 0.5, 0.25 and 0.125 lower it by one, two or three octaves, as on a slowed\n"
    "tape, unless --keep-pitch is given. At speed 1 the samples come out as they went in.\n"
    "\n"
    "Pauses: where speech is softer than --silence-threshold, or than 6 dB above the steady noise\n"
    "of the room, for longer than two margins and a tenth of a second, --silence-speed holds.\n"
    "For this and for --length all of the sound is read once more, before anything is written.\n"
    "\n"
    "Sound: what comes out is as loud and as bright as what went in, and what is in the middle\n"
    "stays there. --material speech takes a shorter window, which also suits drums. --sound\n"
    "engine gives the bare engine: up to 0.5 it passes a low-pass at 2 kHz (1 kHz above 48000 Hz,\n"
    "500 Hz above 96000 Hz) and a gain of -13 dB; with --keep-pitch, 0.5 counts as just above\n"
    "that limit.\n"
    "\n"
    "Input: any file that FFmpeg's libraries read, by name or through a pipe, with 1 to 32\n"
    "channels at 8000 to 192000 Hz. --raw says what - is if it has no header, in or out: u8, s16,\n"
    "s24 (3 bytes), s24in32 (the low 3 of 4), s32, f32 or f64, interleaved and little-endian. A\n"
    "file that is cut short is played as far as it goes, with a warning.\n"
    "\n"
    "Output: picture, subtitles and covers are copied, with new times, where the kind of file has\n"
    "room for them; what is left out is said. Into - goes WAV unless --format says otherwise.\n"
    "\n"
    "Report: a page in HTML that needs no other file and no network: waveforms and spectrograms "
    "on\n"
    "the time of the input, speed, level and pitch by frequency, the figures of --json, and both\n"
    "sounds to listen to, up to 90 seconds of each.\n"
    "\n"
    "Exit codes: 0 done, 1 failed, 2 wrong command line, 130 interrupted (143 terminated; a shell\n"
    "has 131 of SIGQUIT and 137 of SIGKILL), 141 the reader of - has gone. Of many files, 1 if\n"
    "any failed.\n"
    "\n"
    "JSON: an object for each file, in a line: schema (1), input, output, format (of the "
    "samples),\n"
    "rate, channels, speed or map, framesIn, framesOut, framesIdeal, difference, seconds,\n"
    "realTimeFactor, clipped (samples that full scale cut), pauses, saved (seconds). Of what\n"
    "failed: schema, error, and input and output if they are known; of many files, leftOut (why)\n"
    "for what isn't played.";

/// Checks what an option was given by how it is parsed.
/// @param problem  goes on after the text that can't be
template <class Parse>
std::string check(const std::string& text, Parse parse, const std::string& problem)
{
    if (parse(text))
        return {};
    std::string withPoint = text;
    std::replace(withPoint.begin(), withPoint.end(), ',', '.');
    if (withPoint != text && parse(withPoint))
        return "'" + text + "' has a comma: write " + withPoint;
    return "'" + text + "' " + problem;
}

std::string checkSpeed(const std::string& text)
{
    return check(text, parseSpeed,
                 "is not a speed: give a number from 0.125 to 8 (1 is normal, 0.5 half, 2 double "
                 "speed)");
}

std::optional<int> parseInteger(const std::string& text, int least, int most)
{
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    const bool isNumber = result.ec == std::errc() && result.ptr == end;
    return isNumber && value >= least && value <= most ? std::optional(value) : std::nullopt;
}

std::optional<RawFormat> parseRaw(const std::string& text)
{
    std::istringstream fields(text);
    std::string rate;
    std::string channels;
    std::string format;
    std::getline(fields, rate, ':');
    std::getline(fields, channels, ':');
    std::getline(fields, format);
    const auto hertz = parseInteger(rate, AnyStream::kLowestRate, AnyStream::kHighestRate);
    const auto count = parseInteger(channels, 1, AnyStream::kMostChannels);
    const auto* const encoding =
        std::find_if(std::begin(kRawEncodings), std::end(kRawEncodings),
                     [&](const RawEncoding& known) { return known.name == format; });
    if (!hertz || !count || encoding == std::end(kRawEncodings))
        return std::nullopt;
    return RawFormat{*hertz, *count, encoding};
}

std::string checkRaw(const std::string& text)
{
    if (parseRaw(text))
        return {};
    std::string names;
    for (const RawEncoding& encoding : kRawEncodings)
        names += (names.empty() ? "" : ", ") + std::string(encoding.name);
    return "'" + text + "' is not RATE:CHANNELS:FORMAT, such as 48000:2:s16: the rate is " +
           std::to_string(AnyStream::kLowestRate) + " to " +
           std::to_string(AnyStream::kHighestRate) + " Hz, channels are 1 to " +
           std::to_string(AnyStream::kMostChannels) + ", the format is one of " + names;
}

// Bits per second: 192000, 192k.
std::optional<int64_t> parseBitRate(const std::string& text)
{
    const bool isInThousands = text.ends_with('k');
    const auto number =
        parseInteger(text.substr(0, text.size() - (isInThousands ? 1 : 0)), 1, 10'000'000);
    return number ? std::optional(*number * int64_t(isInThousands ? 1000 : 1)) : std::nullopt;
}

std::string checkBitRate(const std::string& text)
{
    return parseBitRate(text) ? std::string()
                              : "'" + text + "' is not a bit rate: give one such as 192k";
}

std::string checkTime(const std::string& text)
{
    return check(text, parseTime,
                 "is not a time: give seconds, m:ss or h:mm:ss, such as 90.5 or 1:30.5");
}

// Decibels: -38, -38dB.
std::optional<double> parseLevel(const std::string& text)
{
    const bool hasUnit = text.ends_with("dB");
    const std::string number = text.substr(0, text.size() - (hasUnit ? 2 : 0));
    char* end = nullptr;
    const double level = std::strtod(number.c_str(), &end);
    const bool isNumber = !number.empty() && *end == '\0';
    return isNumber && level >= -120.0 && level <= 0.0 ? std::optional(level) : std::nullopt;
}

std::string checkLevel(const std::string& text)
{
    return check(text, parseLevel,
                 "is not a level below full scale: give -120dB to 0dB, such as -38dB");
}

// As a variable of a shell gives it that isn't set.
std::string checkNotEmpty(const std::string& name)
{
    return name.empty() ? "is empty: give a name" : "";
}

/// A number in a range, which "nan" isn't.
CLI::Validator within(double lowest, double highest)
{
    const auto isWithin = [=](const std::string& text) {
        char* end = nullptr;
        const double number = std::strtod(text.c_str(), &end);
        return !text.empty() && *end == '\0' && number >= lowest && number <= highest;
    };
    const auto find = [=](std::string& text) -> std::string {
        std::ostringstream problem;
        problem << "is not a number from " << lowest << " to " << highest;
        return check(text, isWithin, problem.str());
    };
    return {find, "", ""};
}

std::string checkInteger(const std::string& text)
{
    return parseInteger(text, -1000, 1000) ? std::string() : "'" + text + "' is not a whole number";
}

// Whether an argument is rather the name of a file than a short option with its value, such as -s1.5.
bool looksLikeName(std::string_view argument)
{
    const size_t point = argument.rfind('.');
    return argument.size() > 2 && argument[0] == '-' && argument[1] != '-' &&
           point != std::string_view::npos && point + 1 < argument.size() &&
           std::isalpha(static_cast<unsigned char>(argument[point + 1])) != 0;
}

// -out.wav would make a folder of the name ut.wav.
void refuseFolderLikeName(std::string_view argument)
{
    std::error_code none;
    if (!argument.starts_with("-o") || !looksLikeName(argument) ||
        std::filesystem::is_directory(argument.substr(2), none))
        return;
    throw CLI::ValidationError("'" + std::string(argument) + "' is read as -o " +
                               std::string(argument.substr(2)) +
                               ": if it is a folder, write it like that");
}

/// Turns one of a few names into what it stands for.
template <class Value>
CLI::Validator nameOf(const std::map<std::string, Value>& values)
{
    const auto find = [values](std::string& text) -> std::string {
        const auto found = values.find(text);
        if (found != values.end()) {
            text = std::to_string(int(found->second));
            return {};
        }
        std::string names;
        for (const auto& [name, value] : values)
            names += (names.empty() ? "" : " or ") + name;
        return "'" + text + "' is not known: give " + names;
    };
    return {find, "", ""};
}

// What was wrong may have kept the parser from this. A single - is taken for the output.
void noteWhatWasWanted(const std::vector<std::string>& arguments, Options& options)
{
    const auto has = [&](const char* argument) {
        return std::find(arguments.begin(), arguments.end(), argument) != arguments.end();
    };
    options.json = options.json || has("--json");
    if (options.output.empty() && has(kPipe))
        options.output = kPipe;
}

std::string engineVersion()
{
    const std::unique_ptr<Velora_VSP_Interface, void (*)(Velora_VSP_Interface*)> engine(
        Velora_VSP_Factory::Create(), Velora_VSP_Factory::Destroy);
    return engine->Get_Version();
}

std::string versions()
{
    return "velora-vsp " VELORA_VSP_TOOL_VERSION "\nengine " + engineVersion();
}

} // namespace

void readOptions(int argc, const char* const* argv, Options& options)
{
    const std::vector<std::string> arguments(argv + 1, argv + std::max(argc, 1));
    std::string speed;
    std::string raw;
    std::string bitRate;
    std::string from;
    std::string to;
    std::string length;
    std::string silenceSpeed;
    std::string silenceThreshold;
    bool isRamp = false;

    CLI::App app(kDescription, "velora-vsp");
    app.footer(kFooter);
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->column_width(27);
    std::vector<std::string> more;
    app.add_option("IN", options.input, "The file to play; - is standard input")
        ->required()
        ->type_name("");
    app.add_option("OUT", options.output, "The file to write; - is standard output")->type_name("");
    app.add_option("FILES", more, "With -o: all names are of files to play")->type_name("");
    app.add_option("-o,--output-dir", options.folder,
                   "Write a file of the same name into DIR for each")
        ->type_name("DIR")
        ->check(checkNotEmpty, "", "name");
    app.add_flag("-r,--recursive", options.isRecursive, "With -o: take all files in folders, too");
    app.add_flag("--skip-existing", options.skipsExisting,
                 "With -o: leave out what has been written before");
    options.jobs = int(std::max(std::thread::hardware_concurrency(), 1U));
    app.add_option("-j,--jobs", options.jobs, "With -o: files at a time (as many as processors)")
        ->type_name("N")
        ->check(CLI::Range(1, 256));
    const auto* speedOption =
        app.add_option("-s,--speed", speed, "0.125 to 8: 0.5 is half, 2 is double speed")
            ->type_name("S")
            ->check(checkSpeed, "", "speed");
    const auto* mapOption = app.add_option("-m,--speed-map", options.speedMapName,
                                           "Take speeds that change over time from a text file")
                                ->type_name("FILE");
    app.add_flag("--ramp", isRamp, "Glide from each speed of the map to the next");
    const auto* lengthOption =
        app.add_option("--length", length, "Take the speed that gives the output this length")
            ->type_name("TIME")
            ->check(checkTime, "", "length");
    app.add_option("--from", from, "Begin at this time of IN")
        ->type_name("TIME")
        ->check(checkTime, "", "from");
    app.add_option("--to", to, "End at this time of IN")
        ->type_name("TIME")
        ->check(checkTime, "", "to");
    const auto* silenceOption =
        app.add_option("--silence-speed", silenceSpeed, "Play pauses of speech at this speed")
            ->type_name("S")
            ->check(checkSpeed, "", "speed");
    const auto* thresholdOption =
        app.add_option("--silence-threshold", silenceThreshold,
                       "What is softer is a pause (-38dB); steady noise raises it")
            ->type_name("DB")
            ->check(checkLevel, "", "level");
    const auto* marginOption = app.add_option("--silence-margin", options.silenceMargin,
                                              "Seconds beside words that stay as they are (0.15)")
                                   ->type_name("SEC")
                                   ->check(within(0.0, 10.0));
    app.add_option("--speed-map-out", options.speedMapOut,
                   "Write the speeds that were taken to a text file")
        ->type_name("FILE")
        ->check(checkNotEmpty, "", "name");
    app.add_option("--report", options.reportName,
                   "Write a page that shows and plays what went in and what came out")
        ->type_name("FILE")
        ->check(checkNotEmpty, "", "name");
    app.add_flag("-k,--keep-pitch", options.keepPitch,
                 "Keep the pitch at speeds 0.5, 0.25 and 0.125 too");
    app.add_option("--sound", options.sound, "natural (the default) or engine")
        ->type_name("HOW")
        ->transform(nameOf<velora::Sound>(
            {{"natural", velora::Sound::natural}, {"engine", velora::Sound::engine}}));
    app.add_option("--material", options.material, "music (the default) or speech")
        ->type_name("WHAT")
        ->transform(nameOf<velora::Material>(
            {{"music", velora::Material::music}, {"speech", velora::Material::speech}}));
    const auto* rawOption =
        app.add_option("--raw", raw, "RATE:CHANNELS:FORMAT of - if it has no header")
            ->type_name("R:C:F")
            ->check(checkRaw, "", "raw");
    app.add_option("--format", options.format,
                   "Kind of file to write: wav, flac, mp3, ogg, matroska ...")
        ->type_name("KIND");
    app.add_option("--codec", options.codec, "How to encode sound: flac, libmp3lame, aac ...")
        ->type_name("NAME");
    app.add_option("--bitrate", bitRate, "Bits per second for sound, such as 192k")
        ->type_name("BITS")
        ->check(checkBitRate, "", "bitrate");
    app.add_option("--quality", options.quality, "Quality of sound, as the encoder counts it")
        ->type_name("Q")
        ->check(within(-1000.0, 1000.0));
    app.add_option("--compression", options.compression,
                   "How hard the encoder tries, as it counts it")
        ->type_name("N")
        ->check(checkInteger, "", "compression");
    app.add_option("--bits", options.bits, "16, 24, 32 or float, for sound without loss")
        ->type_name("BITS")
        ->transform(nameOf<int>({{"16", 16}, {"24", 24}, {"32", 32}, {"float", 33}}));
    app.add_flag("--audio-only", options.audioOnly, "Leave the picture out");
    app.add_flag("--strict", options.strict, "Fail if IN is cut short or damaged");
    app.add_flag("-f,--force", options.overwrite, "Overwrite OUT if it exists");
    app.add_flag("--json", options.json, "Sum up in JSON (on standard error if OUT is -)");
    app.add_flag("-q,--quiet", options.quiet, "Say nothing but errors");
    app.set_version_flag("--version", versions, "Print the versions of tool and engine and exit");
    app.failure_message([&](const CLI::App*, const CLI::Error& error) {
        const bool isUnknown = error.get_exit_code() == int(CLI::ExitCodes::ExtrasError);
        const auto name = std::find_if(arguments.begin(), arguments.end(), looksLikeName);
        options.mistake = error.what();
        std::string hint;
        if (isUnknown || name != arguments.end())
            hint = "\nA name that begins with - is written ./" +
                   (name != arguments.end() ? *name : "-name");
        return "velora-vsp: " + options.mistake + hint +
               "\nTo see how it is used: velora-vsp --help\n";
    });
    try {
        std::for_each(arguments.begin(), std::find(arguments.begin(), arguments.end(), "--"),
                      refuseFolderLikeName);
        app.parse(argc, argv);
        const auto require = [](bool holds, const char* problem) {
            if (!holds)
                throw CLI::ValidationError(problem);
        };
        const auto ways =
            int(!speedOption->empty()) + int(!mapOption->empty()) + int(!lengthOption->empty());
        require(ways == 1 || (ways == 0 && !silenceOption->empty()),
                "Give either --speed S, --speed-map FILE or --length TIME");
        require(!silenceOption->empty() || (thresholdOption->empty() && marginOption->empty()),
                "--silence-threshold and --silence-margin need --silence-speed S");
        require(!options.quality || bitRate.empty(), "Give either --quality Q or --bitrate BITS");
        options.part = {parseTime(from).value_or(0.0), parseTime(to).value_or(kToTheEnd)};
        require(options.part.from < options.part.to, "--to has to come after --from");
        require(!isRamp || !mapOption->empty(), "--ramp needs --speed-map FILE");
        const bool isBatch = !options.folder.empty();
        require(isBatch || more.empty(), "Give one IN and one OUT, or -o DIR for many files");
        require(isBatch || !options.output.empty(), "OUT is required");
        require(isBatch || (!options.isRecursive && !options.skipsExisting),
                "--recursive and --skip-existing need -o DIR");
        if (isBatch) {
            options.inputs = {options.input};
            if (!options.output.empty())
                options.inputs.push_back(options.output);
            options.inputs.insert(options.inputs.end(), more.begin(), more.end());
            options.input.clear();
            options.output.clear();
            require(std::find(options.inputs.begin(), options.inputs.end(), kPipe) ==
                        options.inputs.end(),
                    "- has no name to be written by: give it an OUT");
            require(options.speedMapOut.empty(), "--speed-map-out goes with one file");
            require(options.reportName.empty(), "--report goes with one file");
        }
        require(rawOption->empty() || options.input == kPipe || options.output == kPipe,
                "--raw needs - as IN or OUT: a file says what it holds");
        for (std::string* const name : {&options.output, &options.speedMapOut})
            if (*name == "/dev/stdout") // whatever it is
                *name = kPipe;
        require(options.reportName != kPipe, "Give --report the name of a file");
        require(options.output != kPipe || options.speedMapOut != kPipe,
                "Give --speed-map-out a file: the sound goes to standard output");
    } catch (const CLI::ParseError& error) {
        options.exitCode = app.exit(error) == 0 ? 0 : kWrongCommandLine;
        options.finished = true;
        noteWhatWasWanted(arguments, options);
        return;
    }
    options.speed = mapOption->empty() ? SpeedMap(parseSpeed(speed).value_or(1.0))
                                       : SpeedMap(options.speedMapName, isRamp);
    options.silenceSpeed = parseSpeed(silenceSpeed);
    options.silenceThreshold = parseLevel(silenceThreshold).value_or(options.silenceThreshold);
    options.length = parseTime(length);
    options.bitRate = parseBitRate(bitRate).value_or(0);
    options.raw = raw.empty() ? std::nullopt : parseRaw(raw);
}
