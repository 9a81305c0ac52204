#include "sound_card.h"

#include <stdexcept>
#include <string>

#include <dlfcn.h>

namespace {

void ignore(const char*, int, const char*, int, const char*, ...) {}

// ALSA's library, if SDL uses it, would write lines of its own about what goes wrong, from threads of
// its own, too.
void hushAlsa()
{
    using SetHandler = int (*)(decltype(&ignore));
    void* const library = dlopen("libasound.so.2", RTLD_NOW); // for as long as the program runs
    if (library == nullptr)
        return;
    const auto set = reinterpret_cast<SetHandler>(dlsym(library, "snd_lib_error_set_handler"));
    if (set != nullptr)
        set(ignore);
}

[[noreturn]] void fail()
{
    throw std::runtime_error(std::string("no sound card can be used: ") + SDL_GetError());
}

} // namespace

Sdl::Sdl()
{
    hushAlsa();
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    SDL_LogSetOutputFunction([](void*, int, SDL_LogPriority, const char*) {}, nullptr);
    if (SDL_Init(SDL_INIT_AUDIO) != 0)
        fail();
}

Sdl::~Sdl()
{
    SDL_Quit();
}

SoundCard::SoundCard(Deck& what, int hertz, int width) : deck(what), rate(hertz), channels(width)
{
    SDL_AudioSpec spec{};
    spec.freq = rate;
    spec.format = AUDIO_F32SYS;
    spec.channels = Uint8(channels);
    spec.samples = kBufferFrames;
    spec.userdata = this;
    spec.callback = [](void* data, Uint8* out, int bytes) {
        const SoundCard& card = *static_cast<SoundCard*>(data);
        const int frames = bytes / int(sizeof(float)) / card.channels;
        card.deck.fill(reinterpret_cast<float*>(out), frames, card.channels);
    };
    device = SDL_OpenAudioDevice(nullptr, 0, &spec, nullptr, 0);
    if (device == 0)
        fail();
    SDL_PauseAudioDevice(device, 0);
}

SoundCard::~SoundCard()
{
    SDL_CloseAudioDevice(device);
}
