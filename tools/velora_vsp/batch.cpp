#include "batch.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "error.h"
#include "interruption.h"
#include "job.h"
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

/// What there is to do, and what of it was found out beforehand not to be.
struct Worklist {
    std::vector<Item> items;
    std::vector<std::string> problems; // that count as failures
    int leftOut = 0;                   // files of folders that hold no sound
};

class Planner {
public:
    explicit Planner(const Options& given) : options(given), folder(options.folder) {}

    Worklist plan();

private:
    void addFolder(const fs::path& top);
    void add(const fs::path& input, const fs::path& below, bool isFromFolder);
    bool isOutput(const fs::path& path) const;

    const Options& options;
    const fs::path folder;
    Worklist list;
    std::map<fs::path, std::string> taken; // by output
};

Worklist Planner::plan()
{
    for (const std::string& input : options.inputs) {
        std::error_code none;
        if (!fs::is_directory(input, none))
            add(input, {}, false);
        else if (options.isRecursive)
            addFolder(input);
        else
            list.problems.push_back(input + ": is a folder: --recursive takes the files in it");
    }
    return std::move(list);
}

// What lies there in order of its names, but for hidden files and for what was written here before.
void Planner::addFolder(const fs::path& top)
{
    std::vector<fs::path> found;
    std::error_code problem;
    constexpr auto kSkip = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator at(top, kSkip, problem), end; at != end && !problem;
         at.increment(problem)) {
        const bool isHidden = at->path().filename().string().starts_with('.');
        std::error_code none;
        if (at->is_directory(none) && (isHidden || isOutput(at->path())))
            at.disable_recursion_pending();
        else if (at->is_regular_file(none) && !isHidden)
            found.push_back(at->path());
    }
    if (problem)
        list.problems.push_back(top.string() + ": can't be read: " + problem.message());
    std::sort(found.begin(), found.end());
    for (const fs::path& file : found)
        add(file, fs::relative(file.parent_path(), top), true);
}

bool Planner::isOutput(const fs::path& path) const
{
    std::error_code none;
    return fs::equivalent(path, folder, none);
}

void Planner::add(const fs::path& input, const fs::path& below, bool isFromFolder)
{
    Options one = options;
    one.input = input.string();
    fs::path output = folder / (below / input.filename()).lexically_normal();
    try {
        if (!options.format.empty())
            output.replace_extension(extensionFor(options.format));
        one.output = output.string();
        chooseContainer(one);
    } catch (const FileError& error) {
        if (isFromFolder)
            ++list.leftOut;
        else
            list.problems.push_back(one.input + ": " +
                                    "--format has to say what it is to become: " + error.what());
        return;
    }
    const auto [same, isNew] = taken.emplace(output, one.input);
    std::error_code none;
    const auto bytes = fs::file_size(input, none);
    if (isNew)
        list.items.push_back({one.input, one.output, none ? 0.0 : double(bytes)});
    else
        list.problems.push_back(one.input + ": would become " + one.output + ", which " +
                                same->second + " becomes: play it by itself");
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
    std::atomic<int> leftOut = 0;
};

bool Batch::run()
{
    const auto start = std::chrono::steady_clock::now();
    leftOut = list.leftOut;
    for (const std::string& problem : list.problems)
        progress.complain(problem);
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
        return progress.say(item.output + ": exists already, left as it is");
    }
    Summary summary;
    try {
        fs::create_directories(fs::path(item.output).parent_path());
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
                 part(leftOut, " left out that are no sound files") + time);
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
