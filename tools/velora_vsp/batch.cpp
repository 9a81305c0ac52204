#include "batch.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <exception>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "error.h"
#include "interruption.h"
#include "job.h"
#include "media_input.h"
#include "output_choice.h"
#include "progress.h"
#include "summary.h"

namespace fs = std::filesystem;

namespace {

struct Item {
    std::string input;
    std::string output;
    double bytes = 0.0;
};

/// A file that isn't played.
struct Refusal {
    std::string input;
    std::string output; // empty if it would have none
    std::string reason;
};

/// What there is to do, and what of it was found out beforehand not to be.
struct Worklist {
    std::vector<Item> items;
    std::vector<Refusal> problems; // that count as failures
    std::vector<Refusal> leftOut;
};

// Without "." and doubled slashes; ".." stays, as what it leads to depends on links.
fs::path tidy(const fs::path& path)
{
    fs::path tidied = path.root_path();
    for (const fs::path& part : path.relative_path())
        if (!part.empty() && part != ".")
            tidied /= part;
    return tidied.empty() ? "." : tidied == kPipe ? "." / tidied : tidied;
}

// Whether pictures of this kind stand still, or are no more than text.
bool isFilm(const AVInputFormat& kind)
{
    constexpr char kStills[] = "image2,gif,apng,ico,tty";
    return !std::string_view(kind.name).ends_with("_pipe") &&
           av_match_name(kind.name, kStills) == 0;
}

/// What decides what becomes of a file.
struct Content {
    bool hasFilm = false;
};

// Throws NoMedia if nothing in it can be played, or any other FileError.
Content lookInto(const fs::path& file)
{
    std::error_code none;
    if (fs::is_fifo(file, none))
        return {}; // which gives its content but once
    const MediaInput input(file.string(), std::nullopt);
    const bool hasFilm = input.hasFilm() && isFilm(*input.format().iformat);
    if (!hasFilm && input.bestSound() < 0)
        throw NoMedia(file.string(), "has no sound");
    return {hasFilm};
}

/// What a file is, whatever it is called.
using Identity = std::pair<dev_t, ino_t>;

std::optional<Identity> identify(const fs::path& file)
{
    struct stat status {};
    if (stat(file.c_str(), &status) != 0)
        return std::nullopt;
    return Identity{status.st_dev, status.st_ino};
}

class Planner {
public:
    explicit Planner(const Options& given) : options(given), folder(tidy(given.folder)) {}

    Worklist plan();

private:
    /// A place in a folder that is gone through, and the same place below where the output goes.
    struct Place {
        fs::path path;
        fs::path below;
    };

    void addFolder(const fs::path& top);
    void walk(const Place& at, std::deque<Place>& links);
    void enter(const fs::directory_entry& entry, const Place& place, std::deque<Place>& links);
    void add(const Place& file, bool isFromFolder);
    void take(const Place& file, const Content& content);
    fs::path outputOf(const Place& file, const Content& content) const;
    bool isOutput(const fs::path& path) const;
    void leaveOut(const fs::path& input, const std::string& reason)
    {
        list.leftOut.push_back({input.string(), "", reason});
    }
    void refuse(const fs::path& input, const fs::path& output, const std::string& reason)
    {
        list.problems.push_back({input.string(), output.string(), reason});
    }
    void refuseToOverwriteInputs();

    const Options& options;
    const fs::path folder;
    Worklist list;
    std::set<fs::path> walked;             // folders, without links
    std::map<fs::path, fs::path> seen;     // files without links, and as they were called
    std::map<Identity, fs::path> inputs;   // as they were called
    std::map<fs::path, std::string> taken; // inputs by output
};

Worklist Planner::plan()
{
    for (const std::string& input : options.inputs) {
        const fs::path path = tidy(input);
        std::error_code none;
        if (!fs::is_directory(path, none))
            add({path, {}}, false);
        else if (options.isRecursive)
            addFolder(path);
        else
            refuse(path, "", "is a folder: --recursive takes the files in it");
    }
    if (!options.skipsExisting)
        refuseToOverwriteInputs();
    return std::move(list);
}

// Links come after all that is there itself, so that this keeps its name.
void Planner::addFolder(const fs::path& top)
{
    std::deque<Place> links;
    walk({top, {}}, links);
    for (; !links.empty(); links.pop_front()) {
        const Place link = links.front();
        std::error_code none;
        if (fs::is_directory(link.path, none))
            walk(link, links);
        else if (fs::is_regular_file(link.path, none))
            add(link, true);
        else
            leaveOut(link.path, "is a link that leads to no file");
    }
}

// In order of names, but for hidden files and for what was written here before.
void Planner::walk(const Place& at, std::deque<Place>& links)
{
    if (isOutput(at.path) && !at.below.empty())
        return leaveOut(at.path, "is the folder that is written into");
    std::error_code problem;
    const fs::path real = fs::canonical(at.path, problem);
    if (!problem && !walked.insert(real).second)
        return leaveOut(at.path, "is a folder that comes before already");
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator entry(at.path, problem), end; !problem && entry != end;
         entry.increment(problem))
        entries.push_back(*entry);
    if (problem)
        refuse(at.path, "", "can't be read: " + problem.message());
    std::sort(entries.begin(), entries.end());
    for (const fs::directory_entry& entry : entries) {
        const fs::path name = entry.path().filename();
        if (!name.string().starts_with('.'))
            enter(entry, {at.path == "." ? name : at.path / name, at.below / name}, links);
    }
}

void Planner::enter(const fs::directory_entry& entry, const Place& place, std::deque<Place>& links)
{
    std::error_code none;
    if (entry.is_symlink(none))
        links.push_back(place);
    else if (entry.is_directory(none))
        walk(place, links);
    else if (entry.is_regular_file(none))
        add(place, true);
}

bool Planner::isOutput(const fs::path& path) const
{
    std::error_code none;
    return fs::equivalent(path, folder, none);
}

void Planner::add(const Place& file, bool isFromFolder)
{
    std::error_code none;
    const fs::path real = fs::canonical(file.path, none);
    if (!none) {
        const auto [before, isNew] = seen.emplace(real, file.path);
        if (!isNew)
            return leaveOut(file.path, "is the same file as " + before->second.string());
    }
    if (const auto identity = identify(file.path))
        inputs.emplace(*identity, file.path);
    try {
        take(file, lookInto(file.path));
    } catch (const NoMedia& nothing) {
        isFromFolder ? leaveOut(file.path, nothing.problem())
                     : refuse(file.path, "", nothing.problem());
    } catch (const FileError& error) {
        refuse(file.path, "", error.problem());
    }
}

void Planner::take(const Place& file, const Content& content)
{
    const fs::path output = outputOf(file, content);
    try {
        Options one = options;
        one.output = output.string();
        chooseContainer(one);
    } catch (const FileError&) {
        return refuse(
            file.path, "",
            "files of this kind can be read, but not written: --format has to say what it "
            "is to become");
    }
    std::error_code none;
    const auto [same, isNew] = taken.emplace(fs::weakly_canonical(output, none), file.path);
    if (!isNew)
        return refuse(file.path, output,
                      "would become " + output.string() + ", which " + same->second +
                          " becomes: play it by itself");
    const auto bytes = fs::file_size(file.path, none);
    list.items.push_back({file.path.string(), output.string(), none ? 0.0 : double(bytes)});
}

fs::path Planner::outputOf(const Place& file, const Content& content) const
{
    const fs::path below = file.below.empty() ? file.path.filename() : file.below;
    fs::path output = folder == "." ? below : folder / below;
    if (!options.format.empty())
        output.replace_extension(extensionFor(options.format));
    else if (!options.codec.empty())
        output = nameForCodec(options, output, content.hasFilm && !options.audioOnly);
    return output;
}

// Whatever they are called where the output would go.
void Planner::refuseToOverwriteInputs()
{
    std::erase_if(list.items, [this](const Item& item) {
        const auto there = identify(item.output);
        const auto input = there ? inputs.find(*there) : inputs.end();
        if (input == inputs.end() || identify(item.input) == there)
            return false; // which who writes it finds out
        refuse(item.input, item.output,
               "would overwrite " + item.output + ", which is an input, too: give another folder");
        return true;
    });
}

class Batch {
public:
    Batch(const Options& given, Worklist work)
        : options(given), list(std::move(work)), progress(sizes(list), given.quiet)
    {
    }

    bool run();

private:
    static std::vector<double> sizes(const Worklist& list)
    {
        std::vector<double> sizes;
        for (const Item& item : list.items)
            sizes.push_back(item.bytes);
        return sizes;
    }
    void tellRefusals();
    void work();
    void play(size_t number);
    void sumUp(double seconds);

    const Options& options;
    const Worklist list;
    Progress progress;
    std::mutex mutex;
    std::exception_ptr reasonToStop; // an interruption, or nobody to report to
    std::atomic<size_t> next = 0;
    std::atomic<int> done = 0;
    std::atomic<int> failed = 0;
    std::atomic<int> skipped = 0;
};

bool Batch::run()
{
    const auto start = std::chrono::steady_clock::now();
    tellRefusals();
    failed = int(list.problems.size());
    std::vector<std::jthread> threads;
    {
        const SignalsBlocked inherited;
        for (size_t n = 0; n < std::min(size_t(options.jobs), list.items.size()); ++n)
            threads.emplace_back([this] { work(); });
    }
    threads.clear(); // waits for them
    if (reasonToStop)
        std::rethrow_exception(reasonToStop);
    throwIfInterrupted();
    sumUp(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    return failed == 0;
}

void Batch::tellRefusals()
{
    Options one = options;
    const auto use = [&](const Refusal& refusal) {
        one.input = refusal.input;
        one.output = refusal.output;
    };
    for (const Refusal& problem : list.problems) {
        use(problem);
        reportFailure(FileError(problem.input, problem.reason), one, progress);
    }
    for (const Refusal& leftOut : list.leftOut) {
        use(leftOut);
        reportLeftOut(leftOut.reason, one, progress);
    }
}

void Batch::work()
{
    try {
        for (size_t number; (number = next++) < list.items.size();)
            play(number);
    } catch (...) {
        const std::lock_guard lock(mutex);
        next = list.items.size(); // for the others, too
        reasonToStop = std::current_exception();
    }
}

void Batch::play(size_t number)
{
    const Item& item = list.items[number];
    Options one = options;
    one.input = item.input;
    one.output = item.output;
    std::error_code none;
    if (options.skipsExisting && fs::exists(item.output, none)) {
        ++skipped;
        progress.show(number, 1.0);
        return reportLeftOut(item.output + " exists already", one, progress);
    }
    Summary summary;
    try {
        if (const fs::path folder = fs::path(item.output).parent_path(); !folder.empty())
            fs::create_directories(folder);
        summary = changeSpeed(one, progress, number);
    } catch (const std::exception& error) {
        ++failed;
        progress.show(number, 1.0);
        return reportFailure(error, one, progress);
    }
    ++done;
    progress.show(number, 1.0);
    report(summary, one, progress);
}

void Batch::sumUp(double seconds)
{
    const auto part = [](int count, const char* what) {
        return count > 0 ? ", " + std::to_string(count) + what : "";
    };
    char time[32];
    std::snprintf(time, sizeof time, ", in %.1f s", seconds);
    progress.say(std::to_string(done) + (done == 1 ? " file" : " files") + " written" +
                 part(skipped, " there already") + part(failed, " failed") +
                 part(int(list.leftOut.size()), " left out") + time);
}

} // namespace

bool changeAll(const Options& options)
{
    std::error_code error;
    fs::create_directories(options.folder, error);
    if (error || !fs::is_directory(options.folder))
        throw FileError(options.folder,
                        "can't be made a folder: " + (error ? error.message() : "it is a file"));
    return Batch(options, Planner(options).plan()).run();
}
