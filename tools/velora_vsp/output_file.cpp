#include "output_file.h"

#include <atomic>
#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bytes.h"
#include "error.h"

namespace fs = std::filesystem;

namespace {

const std::string kExists = "exists already: --force overwrites it";

std::string reason(int error)
{
    return std::generic_category().message(error);
}

constexpr std::string_view kTemporaryName = ".velora-vsp-"; // and what makes it unique

std::string temporaryName()
{
    static std::atomic<int> count = 0;
    return std::string(kTemporaryName) + std::to_string(getpid()) + "-" + std::to_string(++count);
}

// A process that writes a file holds a lock on it, so what can be locked was left by one that was
// killed.
void removeIfStale(const fs::path& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file >= 0 && flock(file, LOCK_EX | LOCK_NB) == 0)
        unlink(path.c_str());
    if (file >= 0)
        close(file);
}

void clearStale(const fs::path& directory)
{
    std::error_code none;
    for (fs::directory_iterator at(directory, none), end; at != end && !none; at.increment(none))
        if (at->path().filename().string().starts_with(kTemporaryName) && at->is_regular_file(none))
            removeIfStale(at->path());
}

} // namespace

bool isStream(const fs::path& output)
{
    std::error_code none;
    const fs::file_status status = fs::status(output, none);
    return output == kPipe ||
           (fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status));
}

OutputFile::OutputFile(const fs::path& path, const fs::path& input, bool overwriteExisting)
    : name(path), destination(path), overwrite(overwriteExisting)
{
    std::error_code none; // a file that isn't there is like no other
    if (fs::equivalent(input, path, none))
        throw FileError(name, "is the input file itself: give another name for the output");
    refuseExisting();
    if (fs::exists(path, none))
        destination = fs::canonical(path, none);
    if (destination.empty())
        throw FileError(name, reason(none.value()));

    const fs::path directory = destination.has_parent_path() ? destination.parent_path() : ".";
    if (!createUnnamed(directory)) {
        clearStale(directory);
        createNamed(directory);
    }
    allowAsBefore(fs::perms::owner_write); // which it takes to write it
}

bool OutputFile::createUnnamed(const fs::path& directory)
{
    std::error_code none;
    file = open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    temporaryPath = "/proc/self/fd/" + std::to_string(file);
    isNamed = file < 0 || !fs::exists(temporaryPath, none);
    if (isNamed && file >= 0)
        close(file);
    return !isNamed;
}

// Where file systems know no unnamed ones.
void OutputFile::createNamed(const fs::path& directory)
{
    struct stat status {};
    do {
        temporaryPath = directory / temporaryName();
        file = open(temporaryPath.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
        if (file < 0 && errno == EEXIST)
            continue;
        if (file < 0)
            throw FileError(name, "can't create a file in this directory: " + reason(errno));
        flock(file, LOCK_EX); // waits for one who takes it for stale meanwhile
        if (fstat(file, &status) == 0 && status.st_nlink == 0)
            close(std::exchange(file, -1));
    } while (file < 0);
}

// As the file was that is to be replaced, but whose rights a program takes on is not for another
// content.
void OutputFile::allowAsBefore(fs::perms more) const
{
    std::error_code none; // not every file system has permissions
    const fs::file_status before = fs::status(destination, none);
    if (fs::exists(before))
        fs::permissions(temporaryPath, (before.permissions() & fs::perms::all) | more, none);
}

OutputFile::~OutputFile()
{
    std::error_code ignored; // nothing is left to do about a file that can't be removed
    if (isNamed && !temporaryPath.empty())
        fs::remove(temporaryPath, ignored);
    close(file);
}

void OutputFile::keep()
{
    refuseExisting();
    allowAsBefore(fs::perms::none);
    if (!isNamed)
        giveName();
    std::error_code error;
    if (temporaryPath != destination)
        fs::rename(temporaryPath, destination, error);
    if (error)
        throw FileError(name, "can't be put in its place: " + error.message());
    temporaryPath.clear();
}

// Its own where that is free, else one from which it can be moved there.
void OutputFile::giveName()
{
    std::error_code none;
    fs::path given = destination;
    if (fs::exists(fs::symlink_status(destination, none)))
        given.replace_filename(temporaryName());
    if (linkat(AT_FDCWD, temporaryPath.c_str(), AT_FDCWD, given.c_str(), AT_SYMLINK_FOLLOW) != 0)
        throw FileError(name,
                        errno == EEXIST ? kExists : "can't be put in its place: " + reason(errno));
    temporaryPath = given;
    isNamed = true;
}

void OutputFile::refuseExisting() const
{
    std::error_code none;
    const fs::file_status status = fs::status(name, none);
    if (fs::is_directory(status))
        throw FileError(name, "is a directory: give the name of a file");
    if (fs::exists(status) && !fs::is_regular_file(status))
        throw FileError(name, "is a pipe or a device: give the name of a file");
    if (!overwrite && fs::exists(fs::symlink_status(name, none)))
        throw FileError(name, kExists);
}
