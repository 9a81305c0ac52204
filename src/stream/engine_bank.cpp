// Drives the engines of all channels hop by hop.

#include "stream/engine_bank.h"

#include <cstring>
#include <utility>

#include "convert/bridge.h"
#include "engine/speeds.h"

namespace vsp {

EngineBank::EngineBank(int channels, int rate, Velora_BitDepth_T bitDepth)
    : sampleRate(rate), depth(bitDepth)
{
    for (int channel = 0; channel < channels; channel += 2) {
        owned.emplace_back(nullptr);
        owned.back().reset(Velora_VSP_Factory::Create());
        engines.push_back(owned.back().get());
    }
    speeds.resize(engines.size());
    start(1.0f);
    hop = Velora_VSP_Conductor::HopFrames(engines[0]);
    part.resize(std::size_t(hop * bytesPerFrame(depth)));
    warmUp();
}

// Runs every way through the engines once, so that memory and code are there when the first sound
// comes.
void EngineBank::warmUp()
{
    std::vector<std::byte> silence(part.size());
    for (const float speed : {kSlowestSpeed, 0.3f, kFastestSpeed}) {
        start(speed);
        for (Velora_VSP_Interface* engine : engines) {
            if (converterRatio(speed) != 0)
                engine->Exe(part.data(), silence.data(), hop / converterRatio(speed));
            else
                Velora_VSP_Conductor::TakeHop(engine, silence.data());
            Velora_VSP_Conductor::GiveHop(engine, part.data());
        }
    }
}

void EngineBank::start(float speed)
{
    for (int pair = 0; pair < int(engines.size()); ++pair) {
        engines[std::size_t(pair)]->Init(sampleRate, depth);
        speeds[std::size_t(pair)] = 1.0f;
        engine(pair, speed);
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

void EngineBank::takeHop(int pair, const PairQueue& in, std::int64_t at, float speed)
{
    Velora_VSP_Conductor::TakeHop(engine(pair, speed), in.at(pair, at));
    if (pair + 1 == int(engines.size()))
        Velora_VSP_Conductor::ShareOnsets(engines.data(), int(engines.size()));
}

// Runs run(out), which writes a hop of the pair to `out`.
template <class Run>
void EngineBank::collect(int pair, PairQueue& out, std::int64_t skip, Run run)
{
    const std::int64_t wanted = hop - skip;
    if (pair == 0)
        out.append(wanted);
    std::byte* const target = out.at(pair, out.end() - wanted);
    run(skip == 0 ? target : part.data());
    if (skip > 0)
        std::memcpy(target, part.data() + skip * bytesPerFrame(depth),
                    std::size_t(wanted * bytesPerFrame(depth)));
}

void EngineBank::giveHop(int pair, PairQueue& out, std::int64_t skip, float speed)
{
    collect(pair, out, skip,
            [&](void* target) { Velora_VSP_Conductor::GiveHop(engine(pair, speed), target); });
}

void EngineBank::convert(int pair, PairQueue& out, std::int64_t skip, const PairQueue& in,
                         std::int64_t at, int count, float speed)
{
    collect(pair, out, skip,
            [&](void* target) { engine(pair, speed)->Exe(target, in.at(pair, at), count); });
}

} // namespace vsp
