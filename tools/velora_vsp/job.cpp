#include "job.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "bytes.h"
#include "clock.h"
#include "error.h"
#include "interruption.h"
#include "map_file.h"
#include "media_input.h"
#include "media_output.h"
#include "output_choice.h"
#include "output_file.h"
#include "plan.h"
#include "progress.h"
#include "report.h"
#include "text_converter.h"
#include "tracks.h"

namespace fs = std::filesystem;

namespace {

// Whether files like the output hold sound, and at most a cover.
bool isSoundOnly(const AVOutputFormat& container, const Options& options)
{
    constexpr std::string_view kExtensions[] = {".m4a",  ".m4b", ".ogg", ".oga",
                                                ".opus", ".spx", ".mka", ".wma"};
    const std::string extension = fs::path(options.output).extension().string();
    return options.audioOnly || container.video_codec == AV_CODEC_ID_NONE ||
           container.video_codec == AV_CODEC_ID_PNG ||
           std::find(std::begin(kExtensions), std::end(kExtensions), extension) !=
               std::end(kExtensions);
}

void tell(const std::string& text, const Options& options, Progress& progress)
{
    progress.say((options.folder.empty() ? "" : options.input + ": ") + text);
}

/// All streams of an input on their way into an output.
class Transfer {
public:
    /// @param page  hears the first sound; may be null
    Transfer(MediaInput& source, MediaOutput& target, const Options& given, Progress& shown,
             Report* page)
        : input(source), output(target), options(given), progress(shown), report(page),
          course(given.speed.from(given.part.from))
    {
        const AVFormatContext& format = input.format();
        best = input.bestSound();
        for (unsigned n = 0; n < format.nb_streams; ++n)
            tracks.push_back(makeTrack(*format.streams[n]));
        if (std::all_of(tracks.begin(), tracks.end(), [](const auto& track) { return !track; }))
            throw FileError(input.name(), "has no sound");
        if (sound == nullptr)
            say(input.name() + " has no sound");
    }

    void run(const Phase& phase);
    void sumUp(Summary& summary) const;

private:
    std::unique_ptr<Track> makeTrack(const AVStream& stream);
    std::unique_ptr<Track> makeSound(const AVStream& stream);
    bool hasRoomFor(const AVStream& stream) const;
    void judge() const;
    void say(const std::string& text) const { tell(text, options, progress); }

    MediaInput& input;
    MediaOutput& output;
    const Options& options;
    Progress& progress;
    Report* const report;
    const SpeedMap course;                      // from the start of the part on
    int best;                                   // the index of the sound that a player would choose
    std::vector<std::unique_ptr<Track>> tracks; // by index; null for what is left out
    const SoundTrack* sound = nullptr;          // the first
};

std::unique_ptr<Track> Transfer::makeTrack(const AVStream& stream)
{
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
        return makeSound(stream);
    if (isPicture(stream) && output.addCover(stream))
        return nullptr;
    if (hasRoomFor(stream))
        return std::make_unique<CopiedTrack>(input, stream, output, course, options.part);
    const bool holdsText = !isSoundOnly(output.container(), options);
    if (auto text = holdsText ? TextConverter::make(stream, output.container()) : nullptr) {
        say("subtitles: " + codecName(stream) + " becomes " + avcodec_get_name(text->codec()));
        return std::make_unique<CopiedTrack>(input, stream, output, course, options.part,
                                             std::move(text));
    }
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_DATA)
        say("left out: " +
            std::string(isPicture(stream) ? "cover"
                                          : av_get_media_type_string(stream.codecpar->codec_type)) +
            " (" + codecName(stream) + ")");
    return nullptr;
}

std::unique_ptr<Track> Transfer::makeSound(const AVStream& stream)
{
    if (stream.index != best && isSoundOnly(output.container(), options)) {
        say("left out: another sound track");
        return nullptr;
    }
    auto track = std::make_unique<SoundTrack>(input, stream, output, course, options);
    const int rate = track->encoding().format.rate;
    if (rate != track->in().rate())
        say(std::string(track->encoding().encoder->name) + " takes no " +
            std::to_string(track->in().rate()) + " Hz: converted to " + std::to_string(rate) +
            " Hz");
    const int bits = bitsOf(track->encoding());
    if (bits > 0 && bits < track->in().bits())
        say("samples are rounded from " + bitsName(track->in().bits()) + " to " + bitsName(bits));
    if (sound == nullptr) {
        sound = track.get();
        if (report != nullptr)
            track->tell(*report);
    }
    return track;
}

bool Transfer::hasRoomFor(const AVStream& stream) const
{
    const AVOutputFormat& container = output.container();
    const AVMediaType type = stream.codecpar->codec_type;
    if (isPicture(stream))
        return takesPictures(container);
    if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_SUBTITLE &&
        type != AVMEDIA_TYPE_ATTACHMENT)
        return false;
    return !isSoundOnly(container, options) && holds(container, stream.codecpar->codec_id);
}

void Transfer::run(const Phase& phase)
{
    constexpr double kInterleaving = 10.0; // seconds that streams lie apart in a file, at most
    output.describeLike(input, course, options.part);
    AvOptions muxing;
    setMuxing(muxing, options, input.duration());
    output.begin(muxing);
    const double end = std::min(input.duration(), options.part.to);
    AvPtr<AVPacket> packet(av_packet_alloc());
    while (input.read(*packet)) {
        const auto index = size_t(packet->stream_index);
        if (index < tracks.size() && tracks[index])
            tracks[index]->take(*packet);
        phase.show(input.position(), end);
        throwIfInterrupted();
        if (input.position() > options.part.to + kInterleaving)
            break;
    }
    for (const auto& track : tracks)
        if (track)
            track->finish();
    judge();
    output.end();
}

// What was read may be less than what there was.
void Transfer::judge() const
{
    const bool isLastDamaged =
        sound != nullptr && sound->in().damaged() == 1 && sound->in().endsDamaged();
    std::string problem =
        input.position() < options.part.to ? input.whatIsMissing(isLastDamaged) : "";
    if (sound != nullptr && sound->played() == 0 && sound->in().position() > 0)
        throw FileError(input.name(), "ends at " + clock(input.position()) + ", before --from");
    if (problem.empty() && sound != nullptr && sound->in().damaged() > 0)
        problem = "is damaged: sound that can't be decoded (packets: " +
                  std::to_string(sound->in().damaged()) + ") was left out";
    if (sound != nullptr && sound->in().position() == 0 && !problem.empty())
        throw FileError(input.name(), problem + ", and no sound comes before");
    if (sound != nullptr && sound->out().position() == 0 && !canBeEmpty(output.container()))
        throw FileError(output.name(), "this kind of file can't be empty, but the input has no "
                                       "frames: give another extension, such as .wav");
    if (!problem.empty() && options.strict)
        throw FileError(input.name(), problem);
    if (!problem.empty())
        say(input.name() + ": " + problem + "; all that is there was used");
    if (input.hasFilm() && input.turningPoint() > 0.0)
        say(input.name() + ": times run backwards at " + clock(input.turningPoint()) +
            ": they go on from there");
    if (sound != nullptr && sound->in().hasChanged())
        say(input.name() + ": rate or channels change on the way: converted to those at the start");
}

// In frames, not rounded.
double idealLength(const SpeedMap& speed, const SoundTrack& sound)
{
    const double start = sound.playedFrom();
    const auto frames = double(sound.played());
    const int rate = sound.in().rate();
    return speed.isConstant()
               ? frames / speed.speedAt(0.0)
               : (speed.outputAt(start + frames / rate) - speed.outputAt(start)) * rate;
}

void Transfer::sumUp(Summary& summary) const
{
    if (sound == nullptr)
        return;
    summary.samples = sound->in().samples();
    summary.rate = sound->in().rate();
    summary.channels = sound->in().channels();
    summary.framesIn = sound->played();
    summary.clipped = sound->out().clippedSamples();
    summary.framesOut = sound->out().position();
    summary.framesIdeal = idealLength(options.speed, *sound);
    summary.encoding = describe(sound->encoding());
}

// Where encoding again would only change the samples.
bool isBytewiseCopy(const MediaInput& input, const AVOutputFormat& container,
                    const Options& options)
{
    const AVFormatContext& format = input.format();
    std::error_code none;
    return isCopy(options) && options.part.from == 0.0 && options.part.to == kToTheEnd &&
           !options.quality && !options.compression && options.codec.empty() &&
           options.bitRate == 0 && !options.audioOnly && !options.raw &&
           fs::is_regular_file(options.input, none) && options.output != kPipe &&
           isSameKind(container, *format.iformat) && format.nb_streams > 0 &&
           std::all_of(
               format.streams, format.streams + format.nb_streams, [&](const AVStream* stream) {
                   const AVCodecParameters& codec = *stream->codecpar;
                   return (codec.codec_type != AVMEDIA_TYPE_AUDIO || isLossy(codec.codec_id)) &&
                          (isPicture(*stream) || holds(container, codec.codec_id));
               });
}

void copyBytes(const Options& options, const fs::path& to)
{
    std::ifstream in(options.input, std::ios::binary);
    std::ofstream out(to, std::ios::binary);
    std::vector<char> block(65536);
    while (in.read(block.data(), std::streamsize(block.size())), in.gcount() > 0) {
        out.write(block.data(), in.gcount());
        throwIfInterrupted();
    }
    out.close();
    if (in.bad() || !out)
        throw FileError(options.output, "can't be written: is the disk full?");
}

void refuseOwnInput(const Options& options)
{
    std::error_code none;
    if (fs::is_regular_file("/dev/stdout", none) &&
        fs::equivalent(pathOf(options.input, "/dev/stdin"), "/dev/stdout", none))
        throw FileError("standard output", "is the input file itself");
}

class Job {
public:
    Job(const Options& given, Progress& shown, size_t number);
    Summary run();

private:
    void plan(int stored);
    void transfer(MediaInput& input, Bytes& bytes);
    void toFile(MediaInput& input);

    Options options; // with the speed that was planned
    Progress& progress;
    const Phase listening;
    const Phase changing;
    const AVOutputFormat& container;
    std::optional<MapFile> map;
    std::optional<OutputFile> file; // none for pipes and devices
    Summary summary;
    std::optional<OutputFile> page; // of the report
    std::optional<Report> report;
};

// The report has a name of its own.
void refuseSameNames(const Options& options)
{
    const auto placeOf = [](const std::string& name) {
        std::error_code none;
        const fs::path place = fs::weakly_canonical(fs::absolute(name, none), none);
        return none ? fs::path(name) : place;
    };
    const std::string output = isStream(options.output) ? "" : options.output;
    for (const std::string& other : {output, options.speedMapOut})
        if (!other.empty() && placeOf(other) == placeOf(options.reportName))
            throw FileError(options.reportName,
                            "would be written twice: give each file its own name");
}

// About what reading all of the sound takes, of all that a job does then.
double listeningShare(const Options& options)
{
    return needsListening(options) ? 0.2 : 0.0;
}

Job::Job(const Options& given, Progress& shown, size_t number)
    : options(given), progress(shown), listening(shown, number, 0.0, listeningShare(given)),
      changing(shown, number, listeningShare(given), 1.0), container(chooseContainer(given))
{
    if (!options.speedMapOut.empty())
        map.emplace(options);
    if (isStream(options.output))
        refuseOwnInput(options);
    else
        file.emplace(options.output, pathOf(options.input, "/dev/stdin"), options.overwrite);
    if (!options.reportName.empty()) {
        refuseSameNames(options);
        page.emplace(options.reportName, pathOf(options.input, "/dev/stdin"), options.overwrite);
    }
}

Summary Job::run()
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const Descriptor stored = needsListening(options) ? Bytes::storedIfPipe(options.input)
                                                      : Descriptor(Bytes::kNotStored);
    plan(stored);
    if (page)
        report.emplace(options);
    MediaInput input(options.input, options.rawOf(options.input), stored);
    if (file) {
        toFile(input);
    } else {
        Bytes bytes = Bytes::output(options.output, options.output);
        transfer(input, bytes);
    }
    summary.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (page) {
        report->write(page->temporary(), json(summary, options));
        page->keep();
    }
    return summary;
}

void Job::plan(int stored)
{
    const Plan plan = makePlan(options, stored, listening);
    options.speed = plan.speed;
    summary.speed = plan.pace;
    summary.pauses = plan.pauses;
    summary.saved = plan.saved;
    const std::string notice = pitchNotice(plan.pace);
    if (options.length && !options.keepPitch && !notice.empty())
        tell(notice, options, progress);
}

void Job::transfer(MediaInput& input, Bytes& bytes)
{
    MediaOutput output(container, bytes);
    Transfer all(input, output, options, progress, report ? &*report : nullptr);
    if (map)
        map->write(options.speed);
    all.run(changing);
    all.sumUp(summary);
}

void Job::toFile(MediaInput& input)
{
    Bytes bytes = Bytes::output(file->temporary(), options.output);
    transfer(input, bytes);
    if (isBytewiseCopy(input, container, options))
        copyBytes(options, file->temporary());
    bytes.sync();
    file->keep();
}

} // namespace

Summary changeSpeed(const Options& options, Progress& progress, size_t job)
{
    return Job(options, progress, job).run();
}
