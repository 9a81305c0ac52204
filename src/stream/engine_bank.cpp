// Drives the engines of all channels hop by hop.

#include "stream/engine_bank.h"

#include <cstring>
#include <utility>

#include "convert/bridge.h"
#include "engine/speeds.h"

namespace vsp {

EngineBank::EngineBank(const StreamSettings& settings, const LevelCurve* curve)
    : sampleRate(settings.sampleRate), depth(settings.depth), level(curve),
      sharesTurns(settings.channels > 2 && (settings.sound & Velora_VSP_Sound_LockedChannels) != 0)
{
    for (int channel = 0; channel < settings.channels; channel += 2) {
        owned.emplace_back(nullptr);
        owned.back().reset(Velora_VSP_Factory::Create());
        engines.push_back(owned.back().get());
        Velora_VSP_Conductor::SetSound(engines.back(), settings.sound);
    }
    speeds.resize(engines.size());
    limiters.resize(engines.size());
    for (int pair = 0; pair < pairs(); ++pair)
        startPair(pair, 1.0f);
    hop = Velora_VSP_Conductor::HopFrames(engines[0]);
    part.resize(std::size_t(hop * bytesPerFrame(depth)));
    levelled.resize(std::size_t(hop) * 2);
    given.resize(std::size_t(hop) * 2);
    warmUp();
}

// Runs every way through the engines once, so that memory and code are there when the first sound
// comes.
void EngineBank::warmUp()
{
    std::vector<std::byte> silence(part.size());
    for (const float speed : {kSlowestSpeed, 0.3f, kFastestSpeed})
        for (int pair = 0; pair < pairs(); ++pair) {
            startPair(pair, speed);
            Velora_VSP_Interface* const engine = engines[std::size_t(pair)];
            if (converterRatio(speed) != 0)
                engine->Exe(part.data(), silence.data(), hop / converterRatio(speed));
            else
                Velora_VSP_Conductor::TakeHop(engine, silence.data());
            Velora_VSP_Conductor::GiveHop(engine, part.data());
        }
}

void EngineBank::startPair(int pair, float speed)
{
    engines[std::size_t(pair)]->Init(sampleRate, level == nullptr ? depth : Velora_BitDepth_16);
    speeds[std::size_t(pair)] = 1.0f;
    limiters[std::size_t(pair)] = {};
    engine(pair, speed);
}

void EngineBank::start(Stages stages, float speed, float hops)
{
    for (int n = stages.from; n < stages.to; ++n) {
        const int pair = n / kStartStages;
        if (n % kStartStages == 0) // takes as long as all of them
            startPair(pair, speed);
        else if (hops > 1.0f && n % kStartStages == 1)
            Velora_VSP_Conductor::Prime(engines[std::size_t(pair)], hops);
    }
}

// A pair's engine, which goes on at `speed`.
Velora_VSP_Interface* EngineBank::engine(int pair, float speed)
{
    Velora_VSP_Interface* const found = engines[std::size_t(pair)];
    if (std::exchange(speeds[std::size_t(pair)], speed) != speed)
        Velora_VSP_Conductor::SetSpeedNow(found, speed);
    return found;
}

// `frames` frames of a pair at `at` of `in`, as the engine takes them.
const void* EngineBank::engineInput(int pair, PairQueue& in, std::int64_t at, std::int64_t frames)
{
    if (level == nullptr)
        return in.stretch(pair, at, frames);
    level->scaleIn(reinterpret_cast<Frame*>(levelled.data()), in.at(pair, at), at, frames);
    return levelled.data();
}

void EngineBank::takeHop(Stages stages, PairQueue& in, std::int64_t at, float speed)
{
    if (isAll(stages))
        for (int pair = 0; pair < pairs(); ++pair)
            Velora_VSP_Conductor::TakeHop(engine(pair, speed), engineInput(pair, in, at, hop));
    else
        takeStages(stages, in, at, speed);
    if (stages.to == stages.ofPair * pairs())
        Velora_VSP_Conductor::ShareOnsets(engines.data(), pairs());
}

void EngineBank::takeStages(Stages stages, PairQueue& in, std::int64_t at, float speed)
{
    const void* source = levelled.data();
    for (int n = stages.from; n < stages.to; ++n) {
        const int pair = n / stages.ofPair;
        const int stage = n % stages.ofPair;
        if (stage == 0 || level == nullptr)
            source = engineInput(pair, in, at, hop);
        Velora_VSP_Conductor::TakeStage(engine(pair, speed), stage, source);
    }
}

// Where a hop goes that the queue has taken in already, all but its first `skip` frames.
std::byte* EngineBank::hopRoom(int pair, PairQueue& out, std::int64_t skip)
{
    return skip == 0 ? out.at(pair, out.end() - hop) : part.data();
}

// Where an engine is to write a hop that goes there.
std::byte* EngineBank::engineOutput(std::byte* room)
{
    return level == nullptr ? room : reinterpret_cast<std::byte*>(given.data());
}

// It has.
void EngineBank::finishHop(int pair, std::byte* room, Media media)
{
    if (level != nullptr)
        level->scaleOut(room, reinterpret_cast<const Frame*>(given.data()), hop, media.frame,
                        media.speed, limiters[std::size_t(pair)]);
}

// What is wanted of a hop is brought to where the queue has taken it in.
void EngineBank::keep(int pair, PairQueue& out, std::int64_t skip)
{
    const std::int64_t wanted = hop - skip;
    if (skip > 0)
        std::memcpy(out.at(pair, out.end() - wanted), part.data() + skip * bytesPerFrame(depth),
                    std::size_t(wanted * bytesPerFrame(depth)));
}

void EngineBank::giveHopOf(int pair, std::byte* room, Media media, Approach approach, float speed)
{
    Velora_VSP_Conductor::Steer(engines[std::size_t(pair)], approach.lead, approach.share);
    Velora_VSP_Conductor::GiveHop(engine(pair, speed), engineOutput(room));
    finishHop(pair, room, media);
}

void EngineBank::giveHopTo(std::byte* room, Media media, Approach approach, float speed)
{
    giveHopOf(0, room, media, approach, speed);
}

void EngineBank::giveHop(Stages stages, PairQueue& out, std::int64_t skip, Media media,
                         Approach approach, float speed)
{
    if (!isAll(stages) || sharesTurns)
        return giveStages(stages, out, skip, media, approach, speed);
    out.append(hop - skip);
    for (int pair = 0; pair < pairs(); ++pair) {
        giveHopOf(pair, hopRoom(pair, out, skip), media, approach, speed);
        keep(pair, out, skip);
    }
}

void EngineBank::giveStages(Stages stages, PairQueue& out, std::int64_t skip, Media media,
                            Approach approach, float speed)
{
    constexpr int kLast = kGiveStages - 1; // it and the one before write
    for (int n = stages.from; n < stages.to; ++n) {
        // The first stage of all pairs comes before the others.
        const int pair = n < pairs() ? n : (n - pairs()) / kLast;
        const int stage = n < pairs() ? 0 : 1 + (n - pairs()) % kLast;
        if (sharesTurns && n == pairs())
            Velora_VSP_Conductor::ShareTurns(engines.data(), pairs());
        if (pair == 0 && stage == kLast - 1)
            out.append(hop - skip);
        std::byte* const room = stage < kLast - 1 ? nullptr : hopRoom(pair, out, skip);
        if (stage == 0)
            Velora_VSP_Conductor::Steer(engines[std::size_t(pair)], approach.lead, approach.share);
        Velora_VSP_Conductor::GiveStage(engine(pair, speed), stage, engineOutput(room));
        if (stage == kLast) {
            finishHop(pair, room, media);
            keep(pair, out, skip);
        }
    }
}

void EngineBank::convert(Stages stages, PairQueue& out, std::int64_t skip, Media media,
                         PairQueue& in, std::int64_t at, float speed)
{
    const int frames = hop / kConvertStages; // of output
    const int count = frames / converterRatio(speed);
    const std::ptrdiff_t frameBytes = level == nullptr ? bytesPerFrame(depth) : sizeof(Frame);
    if (stages.from == 0)
        out.append(hop - skip);
    for (int n = stages.from; n < stages.to; ++n) {
        const int pair = n / kConvertStages;
        const int stage = n % kConvertStages;
        std::byte* const room = hopRoom(pair, out, skip);
        engine(pair, speed)
            ->Exe(engineOutput(room) + stage * frames * frameBytes,
                  engineInput(pair, in, at + stage * count, count), count);
        if (stage == kConvertStages - 1) {
            finishHop(pair, room, media);
            keep(pair, out, skip);
        }
    }
}

} // namespace vsp
