// Drives the engines of all channels hop by hop.

#include "stream/engine_bank.h"

#include <cstring>
#include <utility>

#include "convert/bridge.h"
#include "engine/speeds.h"

namespace vsp {

EngineBank::EngineBank(int channels, int rate, Velora_BitDepth_T bitDepth, std::uint32_t sound)
    : sampleRate(rate), depth(bitDepth),
      sharesTurns(channels > 2 && (sound & Velora_VSP_Sound_LockedChannels) != 0)
{
    for (int channel = 0; channel < channels; channel += 2) {
        owned.emplace_back(nullptr);
        owned.back().reset(Velora_VSP_Factory::Create());
        engines.push_back(owned.back().get());
        Velora_VSP_Conductor::SetSound(engines.back(), sound);
    }
    speeds.resize(engines.size());
    for (int pair = 0; pair < pairs(); ++pair)
        startPair(pair, 1.0f);
    hop = Velora_VSP_Conductor::HopFrames(engines[0]);
    part.resize(std::size_t(hop * bytesPerFrame(depth)));
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
    engines[std::size_t(pair)]->Init(sampleRate, depth);
    speeds[std::size_t(pair)] = 1.0f;
    engine(pair, speed);
}

void EngineBank::start(Stages stages, float speed, float hops)
{
    for (int n = stages.from; n < stages.to; ++n) {
        const int pair = n / kStartStages;
        if (n % kStartStages == 0) // takes as long as all of them
            startPair(pair, speed);
        else if (hops > 1.0f)
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

void EngineBank::takeHop(Stages stages, const PairQueue& in, std::int64_t at, float speed)
{
    for (int n = stages.from; n < stages.to; ++n) {
        const int pair = n / kTakeStages;
        Velora_VSP_Conductor::TakeStage(engine(pair, speed), n % kTakeStages, in.at(pair, at));
    }
    if (stages.to == kTakeStages * pairs())
        Velora_VSP_Conductor::ShareOnsets(engines.data(), pairs());
}

// Where a hop of the pair is to be written, which the queue has taken in already all but its first
// `skip` frames.
std::byte* EngineBank::roomFor(int pair, PairQueue& out, std::int64_t skip)
{
    return skip == 0 ? out.at(pair, out.end() - hop) : part.data();
}

// That hop has been written.
void EngineBank::keep(int pair, PairQueue& out, std::int64_t skip) const
{
    const std::int64_t wanted = hop - skip;
    if (skip > 0)
        std::memcpy(out.at(pair, out.end() - wanted), part.data() + skip * bytesPerFrame(depth),
                    std::size_t(wanted * bytesPerFrame(depth)));
}

void EngineBank::giveHop(Stages stages, PairQueue& out, std::int64_t skip, float speed)
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
        std::byte* const room = stage < kLast - 1 ? nullptr : roomFor(pair, out, skip);
        Velora_VSP_Conductor::GiveStage(engine(pair, speed), stage, room);
        if (stage == kLast)
            keep(pair, out, skip);
    }
}

void EngineBank::convert(Stages stages, PairQueue& out, std::int64_t skip, const PairQueue& in,
                         std::int64_t at, float speed)
{
    const int frames = hop / kConvertStages; // of output
    const int count = frames / converterRatio(speed);
    if (stages.from == 0)
        out.append(hop - skip);
    for (int n = stages.from; n < stages.to; ++n) {
        const int pair = n / kConvertStages;
        const int stage = n % kConvertStages;
        std::byte* const room = roomFor(pair, out, skip) + stage * frames * bytesPerFrame(depth);
        engine(pair, speed)->Exe(room, in.at(pair, at + stage * count), count);
        if (stage == kConvertStages - 1)
            keep(pair, out, skip);
    }
}

} // namespace vsp
