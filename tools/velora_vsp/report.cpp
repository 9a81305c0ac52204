#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string_view>
#include <vector>

extern "C" {
#include <libavutil/base64.h>
}

#include "band_check.h"
#include "error.h"
#include "report_page.h"

namespace {

constexpr double kMostClip = 90.0; // seconds of each sound to listen to: about 1.5 MB of text

/// Numbers of so many digits, as JSON.
class NumberList {
public:
    explicit NumberList(int precision) : digits(precision) {}
    void add(double number)
    {
        char item[40];
        std::snprintf(item, sizeof item, "%s%.*g", text.empty() ? "" : ",", digits, number);
        text += item;
    }
    std::string json() const { return std::string("[").append(text).append("]"); }

private:
    int digits;
    std::string text;
};

std::string number(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.9g", value);
    return text;
}

std::string base64(const std::vector<uint8_t>& bytes)
{
    std::vector<char> text(AV_BASE64_SIZE(bytes.size()));
    av_base64_encode(text.data(), int(text.size()), bytes.data(), int(bytes.size()));
    return text.data();
}

// Where a page in HTML has a name between two @, what it stands for.
void fill(std::ofstream& out, std::string_view page, const std::string& data)
{
    struct Part {
        std::string_view name;
        std::string_view text;
    };
    const Part parts[] = {{"@PLOT_STYLE@", kPlotStyle}, {"@PLOT_LICENSE@", kPlotLicense},
                          {"@STYLE@", kReportStyle},    {"@PLOT_SCRIPT@", kPlotScript},
                          {"@SCRIPT@", kReportScript},  {"@DATA@", data}};
    while (!page.empty()) {
        size_t at = page.size();
        Part next{};
        for (const Part& part : parts)
            if (const size_t found = page.find(part.name); found < at) {
                at = found;
                next = part;
            }
        out << page.substr(0, at) << next.text;
        page.remove_prefix(std::min(at + next.name.size(), page.size()));
    }
}

// Within a script element, nothing may look like its end.
std::string withoutTags(const std::string& json)
{
    std::string safe;
    for (const char letter : json)
        if (letter == '<')
            safe += "\\u003c";
        else
            safe += letter;
    return safe;
}

} // namespace

Report::Report(const Options& given) : course(given.speed), options(given) {}

void Report::begin(Samples samples, int rate, const AVChannelLayout& layout, double first)
{
    start = first;
    // As long as neither sound is longer than may be.
    double least = 0.0;
    clipSeconds = kMostClip;
    for (int n = 0; n < 40; ++n) {
        const double middle = n == 0 ? kMostClip : (least + clipSeconds) / 2.0;
        (outputOf(middle) <= kMostClip ? least : clipSeconds) = middle;
    }
    clipSeconds = least;
    const auto makeSide = [&](Side& side, double seconds, SoundPicture::Weight weight) {
        side.picture =
            std::make_unique<SoundPicture>(samples, rate, layout.nb_channels, std::move(weight));
        side.clip =
            std::make_unique<SoundClip>(samples, rate, layout, std::llround(seconds * rate));
    };
    // What is played slowly makes up more of the output.
    makeSide(in, clipSeconds,
             [this](double second) { return 1.0 / course.speedAt(start + second); });
    makeSide(out, outputOf(clipSeconds), [](double) { return 1.0; });
}

void Report::take(Side& side, const Block& block)
{
    side.picture->take(block);
    side.clip->take(block);
}

void Report::takeInput(const Block& block)
{
    take(in, block);
}

void Report::takeOutput(const Block& block)
{
    take(out, block);
}

/// Seconds of media from the start of the sound to that of a column.
double Report::mediaOf(size_t column) const
{
    return in.picture->seconds() * double(column) / double(std::max<size_t>(columns, 1));
}

/// Seconds of output from its start to where so much media has been played.
double Report::outputOf(double media) const
{
    return course.outputAt(start + media) - course.outputAt(start);
}

/// Whether there is a speed in the course at which the pitch drops.
bool Report::dropsPitch() const
{
    return !options.keepPitch && (course.holds(0.5) || course.holds(0.25) || course.holds(0.125));
}

/// What the whole sound's pitch is to be multiplied by.
double Report::pitch() const
{
    return course.isConstant() && dropsPitch() ? course.speedAt(start) : 1.0;
}

// What is seen of one sound in each column: the lowest, highest and mean sample, and from the lowest
// band to the highest their levels.
std::string Report::sideData(Side& side, bool isOutput) const
{
    constexpr double kLevels = 2.0; // of a byte in a decibel, down to -127.5 dB
    NumberList low(3);
    NumberList high(3);
    NumberList rms(3);
    std::vector<uint8_t> levels(columns * SoundPicture::kBands);
    for (size_t column = 0; column < columns; ++column) {
        const double from = mediaOf(column);
        const double to = mediaOf(column + 1);
        const SoundPicture::Column seen = isOutput
                                              ? side.picture->between(outputOf(from), outputOf(to))
                                              : side.picture->between(from, to);
        low.add(double(seen.low));
        high.add(double(seen.high));
        rms.add(seen.rms());
        for (size_t band = 0; band < SoundPicture::kBands; ++band)
            levels[band * columns + column] =
                uint8_t(std::lround(std::clamp(255.0 + kLevels * seen.level(band), 0.0, 255.0)));
    }
    return "{\"seconds\":" + number(side.picture->seconds()) + ",\"low\":" + low.json() +
           ",\"high\":" + high.json() + ",\"rms\":" + rms.json() + ",\"levels\":\"" +
           base64(levels) + "\",\"sound\":\"" + side.clip->finish() + "\"}";
}

// By column: when it sounds, and the speed on the way to the next.
std::string Report::speedData() const
{
    NumberList times(9);
    NumberList speeds(6);
    for (size_t column = 0; column <= columns; ++column)
        times.add(outputOf(mediaOf(column)));
    for (size_t column = 0; column < columns; ++column) {
        const double taken = outputOf(mediaOf(column + 1)) - outputOf(mediaOf(column));
        speeds.add((mediaOf(column + 1) - mediaOf(column)) / taken);
    }
    return "\"outputAt\":" + times.json() + ",\"speeds\":" + speeds.json();
}

std::string Report::bandData(int perOctave) const
{
    std::string text;
    const auto bands =
        checkBands(in.picture->spectrum(), out.picture->spectrum(), perOctave, pitch());
    for (const BandCheck& band : bands)
        text += std::string(text.empty() ? "" : ",") + "{\"hertz\":" + number(band.hertz) +
                ",\"in\":" + number(band.in) + ",\"out\":" + number(band.out) +
                ",\"cents\":" + (band.cents ? number(*band.cents) : "null") + "}";
    return std::string("[").append(text).append("]");
}

std::string Report::data(const std::string& figures)
{
    if (in.picture == nullptr) // nothing was played
        return "{\"figures\":" + figures + ",\"columns\":0}";
    in.picture->finish();
    out.picture->finish();
    columns = in.picture->columns();
    const double heard = std::min(clipSeconds, in.picture->seconds());
    return "{\"figures\":" + figures + ",\"columns\":" + std::to_string(columns) +
           ",\"start\":" + number(start) + ",\"bands\":" + std::to_string(SoundPicture::kBands) +
           ",\"lowest\":" + number(SoundPicture::kLowest) +
           ",\"highest\":" + number(in.picture->highest()) + ",\"pitch\":" + number(pitch()) +
           ",\"isPitchMixed\":" + (dropsPitch() && !course.isConstant() ? "true" : "false") +
           ",\"heard\":" + number(heard) + "," + speedData() + ",\"octaves\":" + bandData(1) +
           ",\"thirds\":" + bandData(3) + ",\"in\":" + sideData(in, false) +
           ",\"out\":" + sideData(out, true) + "}";
}

void Report::write(const std::filesystem::path& to, const std::string& figures)
{
    std::ofstream page(to, std::ios::binary);
    fill(page, kReportPage, withoutTags(data(figures)));
    page.close();
    if (!page)
        throw FileError(options.reportName, "can't be written: is the disk full?");
}
