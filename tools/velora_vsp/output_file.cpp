#include "output_file.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include <fcntl.h>
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

// The mode that the file to be replaced has, or that a new one gets. Whose rights a program takes on
// is not for another content.
fs::perms modeFor(const fs::path& file)
{
    std::error_code missing;
    const fs::file_status status = fs::status(file, missing);
    if (fs::exists(status))
        return status.permissions() & fs::perms::all;
    const mode_t mask = umask(0);
    umask(mask);
    return fs::perms(0666 & ~mask);
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

    create();
    fs::permissions(temporaryPath, modeFor(destination), none); // not every file system has them
}

void OutputFile::create()
{
    std::error_code none;
    const fs::path directory = destination.has_parent_path() ? destination.parent_path() : ".";
    unnamed = open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    temporaryPath = "/proc/self/fd/" + std::to_string(unnamed);
    if (unnamed >= 0 && fs::exists(temporaryPath, none))
        return;
    std::string pattern = (directory / ".velora-vsp-XXXXXX").string();
    const int file = mkstemp(pattern.data());
    if (file < 0)
        throw FileError(name, "can't create a file in this directory: " + reason(errno));
    close(file);
    temporaryPath = pattern;
}

OutputFile::~OutputFile()
{
    if (unnamed >= 0)
        close(unnamed);
    std::error_code ignored; // nothing is left to do about a file that can't be removed
    if (unnamed < 0 && !temporaryPath.empty())
        fs::remove(temporaryPath, ignored);
}

void OutputFile::keep()
{
    refuseExisting();
    if (unnamed >= 0)
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
    if (fs::exists(fs::symlink_status(destination, none))) {
        given.replace_filename(".velora-vsp-" + std::to_string(getpid()) + "-" +
                               std::to_string(unnamed));
        fs::remove(given, none); // of a process that had the same number
    }
    if (linkat(AT_FDCWD, temporaryPath.c_str(), AT_FDCWD, given.c_str(), AT_SYMLINK_FOLLOW) != 0)
        throw FileError(name,
                        errno == EEXIST ? kExists : "can't be put in its place: " + reason(errno));
    close(unnamed);
    unnamed = -1;
    temporaryPath = given;
}

void OutputFile::refuseExisting() const
{
    std::error_code none;
    const fs::file_status status = fs::status(name, none);
    if (fs::is_directory(status))
        throw FileError(name, "is a directory: give the name of a file");
    if (!overwrite && fs::exists(fs::symlink_status(name, none)))
        throw FileError(name, kExists);
}
