#include "options.h"

#include <CLI/CLI.hpp>

namespace {

constexpr int kWrongCommandLine = 2;

constexpr char kDescription[] =
    "Plays sound faster or slower without changing the pitch, by keys while it plays.";

constexpr char kFooter[] =
    "Keys:\n"
    "  + or Up, - or Down      faster and slower by 0.05        (faster, slower)\n"
    "  . ,                     faster and slower by 0.01        (fine-faster, fine-slower)\n"
    "  1                       speed 1.0                        (normal)\n"
    "  Space                   pause, and on again              (pause)\n"
    "  Right, Left             5 seconds forward, back          (forward, back)\n"
    "  PageDown, PageUp        30 seconds forward, back         (far-forward, far-back)\n"
    "  a, b                    repeat from here, up to here     (loop-from, loop-to)\n"
    "  x                       no longer repeat                 (loop-off)\n"
    "  n, p                    next file, the one before        (next, previous)\n"
    "  q                       quit                             (quit)\n"
    "\n"
    "Line: time in the file, time it will still take to listen, speed, || in a pause, A where a\n"
    "repetition begins and AB while it goes on, level in steps of 6 dB.\n"
    "\n"
    "Examples:\n"
    "  velora-play talk.mp3 -s 1.5                      one and a half times as fast\n"
    "  velora-play album/*.flac                         one after the other\n"
    "  velora-play - <song.flac                         from a pipe, without going back\n"
    "\n"
    "Script: a file of lines TIME ACTION..., with the names in parentheses above: what to do how\n"
    "many seconds after the first file began. It does so to the frame. # begins a comment.\n"
    "\n"
    "Input: any file that FFmpeg's libraries read, by name or through a pipe, with 1 to 8 "
    "channels\n"
    "at 8000 to 192000 Hz; of a film the sound. What can't be played is named, the rest goes on.\n"
    "\n"
    "Sound goes to where SDL_AUDIODRIVER says, else to the system's usual place.\n"
    "\n"
    "Exit codes: 0 done, 1 a file or the sound card failed, 2 wrong command line, 130 interrupted\n"
    "(143 terminated).";

} // namespace

Options readOptions(int argc, const char* const* argv)
{
    Options options;
    std::string script;
    CLI::App app(kDescription, "velora-play");
    app.footer(kFooter);
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->column_width(27);
    app.add_option("FILE", options.files, "The files to play; - is standard input")
        ->required()
        ->type_name("");
    app.add_option("-s,--speed", options.speed, "0.125 to 8, to begin with (1)")
        ->type_name("S")
        ->check(CLI::Range(0.125, 8.0).description(""));
    app.add_option("--keys", script, "Take keys from a script, too")->type_name("SCRIPT");
    app.set_version_flag("--version", std::string("velora-play ") + VELORA_PLAY_VERSION,
                         "Print the version and exit");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return "velora-play: " + std::string(error.what()) +
               "\nTo see how it is used: velora-play --help\n";
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        options.exitCode = app.exit(error) == 0 ? 0 : kWrongCommandLine;
        options.finished = true;
        return options;
    }
    if (!script.empty())
        options.script = readScript(script);
    return options;
}
