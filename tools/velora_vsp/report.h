// A page to look at: what went in and what came out, drawn side by side, heard and measured.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "options.h"
#include "samples.h"
#include "sound_clip.h"
#include "sound_picture.h"
#include "speed_map.h"

class Report {
public:
    /// @param options  outlive this, with the speeds that will be played
    explicit Report(const Options& options);

    /// What the sound is like, and the second of media at which it begins.
    void begin(Samples samples, int rate, const AVChannelLayout& layout, double first);
    /// Each may have a thread of its own.
    void takeInput(const Block& block);
    void takeOutput(const Block& block);

    /// To be called once, after the last block.
    /// @param figures  a JSON object
    /// Throws FileError.
    void write(const std::filesystem::path& to, const std::string& figures);

private:
    struct Side {
        std::unique_ptr<SoundPicture> picture;
        std::unique_ptr<SoundClip> clip;
    };
    void take(Side& side, const Block& block);
    double mediaOf(size_t column) const;
    double outputOf(double media) const;
    bool dropsPitch() const;
    double pitch() const;
    std::string sideData(Side& side, bool isOutput) const;
    std::string speedData() const;
    std::string bandData(int perOctave) const;
    std::string data(const std::string& figures);

    const SpeedMap& course; // output times along the media time of the input
    const Options& options;
    double start = 0.0;       // of the sound, in seconds of media
    double clipSeconds = 0.0; // of media that there are to listen to, at most
    size_t columns = 0;       // of equal parts of media time, in which all is drawn
    Side in;
    Side out;
};
