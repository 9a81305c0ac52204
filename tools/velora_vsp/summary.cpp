#include "summary.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <new>

#include "media_input.h"

namespace {

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...)
{
    std::va_list values;
    va_start(values, pattern);
    char text[512];
    std::vsnprintf(text, sizeof text, pattern, values);
    va_end(values);
    return text;
}

// Seconds of sound written in a second.
double realTimeFactor(const Summary& summary)
{
    return double(summary.framesOut) / std::max(summary.rate, 1) / summary.seconds;
}

const char* nameOf(Samples samples)
{
    switch (samples) {
    case Samples::int16:
        return "s16";
    case Samples::int24:
        return "s24";
    case Samples::int32:
        return "s32";
    case Samples::float32:
        return "f32";
    default:
        return "f64";
    }
}

// Bytes of the UTF-8 sequence that starts at `at`; 0 if there is none.
size_t utf8Length(const std::string& text, size_t at)
{
    const auto byte = [&](size_t n) {
        return at + n < text.size() ? static_cast<unsigned char>(text[at + n]) : 0U;
    };
    const unsigned first = byte(0);
    const size_t length = first < 0x80                    ? 1
                          : first >= 0xC2 && first < 0xE0 ? 2
                          : first >= 0xE0 && first < 0xF0 ? 3
                          : first >= 0xF0 && first < 0xF5 ? 4
                                                          : 0;
    for (size_t n = 1; n < length; ++n)
        if ((byte(n) & 0xC0) != 0x80)
            return 0;
    const unsigned second = byte(1);
    const bool isOverlongOrNone =
        (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
        (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
    return isOverlongOrNone ? 0 : length;
}

// File names may hold any bytes, JSON only Unicode.
std::string quoted(const std::string& text)
{
    std::string out = "\"";
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8Length(text, at);
        const char first = text[at];
        if (length == 0)
            out += "\\ufffd";
        else if (first == '"' || first == '\\')
            out += {'\\', first};
        else if (static_cast<unsigned char>(first) < 0x20)
            out += format("\\u%04x", static_cast<unsigned>(first));
        else
            out += text.substr(at, length);
        at += length == 0 ? 1 : length;
    }
    return out + "\"";
}

std::string closingLine(const Summary& summary)
{
    if (summary.rate == 0)
        return "no sound: only times were changed";
    // To hundredths, and 0 without a sign.
    const double difference =
        std::round(100.0 * (double(summary.framesOut) - summary.framesIdeal)) / 100.0 + 0.0;
    std::string line =
        format("%lld frames in, %lld out, ideal %.2f, difference %+.2f, %.1f × real time, %s",
               static_cast<long long>(summary.framesIn), static_cast<long long>(summary.framesOut),
               summary.framesIdeal, difference, realTimeFactor(summary), summary.encoding.c_str());
    if (summary.clipped > 0)
        line += format(", clipped samples: %lld", static_cast<long long>(summary.clipped));
    if (summary.pauses > 0)
        line += format(", %.1f s saved in %d pause%s", summary.saved, summary.pauses,
                       summary.pauses == 1 ? "" : "s");
    return line;
}

// Into the output itself, or the map, nothing else may go.
void printJson(const std::string& text, const Options& options)
{
    if (options.output == kPipe || options.speedMapOut == kPipe)
        std::fputs(text.c_str(), stderr);
    else
        writeOutput(text.data(), text.size());
}

} // namespace

std::string json(const Summary& summary, const Options& options)
{
    const std::string speed = options.speedMapName.empty()
                                  ? format("\"speed\": %.9g", summary.speed)
                                  : "\"map\": " + quoted(options.speedMapName);
    return "{\"schema\": 1, \"input\": " + quoted(options.input) +
           ", \"output\": " + quoted(options.output) +
           format(", \"format\": \"%s\", \"rate\": %d, \"channels\": %d, ", nameOf(summary.samples),
                  summary.rate, summary.channels) +
           speed +
           format(", \"framesIn\": %lld, \"framesOut\": %lld, \"framesIdeal\": %.3f, "
                  "\"difference\": %.3f, \"seconds\": %.6f, \"realTimeFactor\": %.3f, "
                  "\"clipped\": %lld, \"pauses\": %d, \"saved\": %.6f}\n",
                  static_cast<long long>(summary.framesIn),
                  static_cast<long long>(summary.framesOut), summary.framesIdeal,
                  double(summary.framesOut) - summary.framesIdeal, summary.seconds,
                  realTimeFactor(summary), static_cast<long long>(summary.clipped), summary.pauses,
                  summary.saved);
}

void report(const Summary& summary, const Options& options, Progress& progress)
{
    if (options.json)
        printJson(json(summary, options), options);
    else
        progress.say((options.folder.empty() ? "" : options.input + ": ") + closingLine(summary));
}

void reportMistake(const std::string& problem, const Options& options)
{
    if (!options.json)
        return;
    std::string text = "{\"schema\": 1, ";
    if (!options.input.empty())
        text += "\"input\": " + quoted(options.input) + ", ";
    if (!options.output.empty())
        text += "\"output\": " + quoted(options.output) + ", ";
    printJson(text + "\"error\": " + quoted(problem) + "}\n", options);
}

void reportFailure(const std::exception& error, const Options& options, Progress& progress)
{
    const bool isMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    std::string problem = isMemory ? "out of memory" : error.what();
    if (dynamic_cast<const UnknownMedia*>(&error) != nullptr)
        problem += " (samples without a header go in through -, with --raw)";
    progress.complain(problem);
    reportMistake(problem, options);
}

void reportLeftOut(const std::string& reason, const Options& options, Progress& progress)
{
    if (options.json)
        printJson("{\"schema\": 1, \"input\": " + quoted(options.input) + ", \"output\": " +
                      quoted(options.output) + ", \"leftOut\": " + quoted(reason) + "}\n",
                  options);
    else
        progress.say(options.input + ": left out: " + reason);
}
