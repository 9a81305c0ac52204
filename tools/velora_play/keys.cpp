#include "keys.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <sstream>

#include "error.h"

namespace {

struct Key {
    std::string_view bytes;
    Action action;
};

constexpr Key kKeys[] = {
    {"+", Action::faster},
    {"=", Action::faster},
    {"\033[A", Action::faster},
    {"\033OA", Action::faster},
    {"-", Action::slower},
    {"\033[B", Action::slower},
    {"\033OB", Action::slower},
    {".", Action::fineFaster},
    {",", Action::fineSlower},
    {"1", Action::normal},
    {" ", Action::pause},
    {"\033[C", Action::forward},
    {"\033OC", Action::forward},
    {"\033[D", Action::back},
    {"\033OD", Action::back},
    {"\033[5~", Action::farBack},
    {"\033[6~", Action::farForward},
    {"a", Action::loopFrom},
    {"b", Action::loopTo},
    {"x", Action::loopOff},
    {"n", Action::next},
    {"p", Action::previous},
    {"q", Action::quit},
};

struct Name {
    std::string_view name;
    Action action;
};

constexpr Name kNames[] = {
    {"faster", Action::faster},          {"slower", Action::slower},
    {"fine-faster", Action::fineFaster}, {"fine-slower", Action::fineSlower},
    {"normal", Action::normal},          {"pause", Action::pause},
    {"forward", Action::forward},        {"back", Action::back},
    {"far-forward", Action::farForward}, {"far-back", Action::farBack},
    {"loop-from", Action::loopFrom},     {"loop-to", Action::loopTo},
    {"loop-off", Action::loopOff},       {"next", Action::next},
    {"previous", Action::previous},      {"quit", Action::quit},
};

// Bytes of the escape sequence that `typed` begins with; 0 if more are to come.
size_t sequenceBytes(const std::string& typed)
{
    if (typed.size() < 2)
        return 0;
    if (typed[1] != '[' && typed[1] != 'O')
        return 1; // the key Esc by itself
    const auto last =
        std::find_if(typed.begin() + 2, typed.end(), [](char c) { return c >= '@' && c <= '~'; });
    return last == typed.end() ? 0 : size_t(last - typed.begin()) + 1;
}

std::optional<double> parseSeconds(std::string_view text)
{
    double value = 0.0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    const bool isTime =
        result.ec == std::errc() && result.ptr == end && value >= 0.0 && value < 1e6;
    return isTime ? std::optional(value) : std::nullopt;
}

} // namespace

std::optional<Action> takeKey(std::string& typed)
{
    if (typed.empty())
        return std::nullopt;
    const size_t bytes = typed[0] == '\033' ? sequenceBytes(typed) : 1;
    const std::string key = typed.substr(0, bytes);
    typed.erase(0, bytes);
    const auto* const known = std::find_if(std::begin(kKeys), std::end(kKeys),
                                           [&](const Key& other) { return other.bytes == key; });
    return known == std::end(kKeys) ? std::nullopt : std::optional(known->action);
}

std::optional<Action> actionNamed(std::string_view name)
{
    const auto* const known = std::find_if(std::begin(kNames), std::end(kNames),
                                           [&](const Name& other) { return other.name == name; });
    return known == std::end(kNames) ? std::nullopt : std::optional(known->action);
}

std::vector<TimedAction> readScript(const std::string& path)
{
    std::ifstream file(path);
    if (!file)
        throw FileError(path, "can't be read");
    std::vector<TimedAction> script;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const std::string place = path + ":" + std::to_string(number);
        std::istringstream words(line.substr(0, line.find('#')));
        std::string word;
        if (!(words >> word))
            continue;
        const auto time = parseSeconds(word);
        if (!time)
            throw FileError(place, "'" + word + "' is not a time in seconds");
        if (!script.empty() && *time < script.back().time)
            throw FileError(place, "times have to rise");
        while (words >> word) {
            const auto action = actionNamed(word);
            if (!action)
                throw FileError(place, "'" + word + "' is not known: velora-play --help names all");
            script.push_back({*time, *action});
        }
    }
    return script;
}
