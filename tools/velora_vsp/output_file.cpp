#include "output_file.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

#include "bytes.h"
#include "error.h"

namespace fs = std::filesystem;

namespace {

std::string reason(int error)
{
    return std::generic_category().message(error);
}

// The mode that the file to be replaced has, or that a new one gets.
fs::perms modeFor(const fs::path& file)
{
    std::error_code missing;
    const fs::file_status status = fs::status(file, missing);
    if (fs::exists(status))
        return status.permissions();
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

    std::string pattern = (destination.parent_path() / ".velora-vsp-XXXXXX").string();
    const int file = mkstemp(pattern.data());
    if (file < 0)
        throw FileError(name, "can't create a file in this directory: " + reason(errno));
    close(file);
    temporaryPath = pattern;
    fs::permissions(temporaryPath, modeFor(destination), none); // not every file system has them
}

OutputFile::~OutputFile()
{
    if (temporaryPath.empty())
        return;
    std::error_code ignored; // nothing is left to do about a file that can't be removed
    fs::remove(temporaryPath, ignored);
}

void OutputFile::keep()
{
    refuseExisting();
    std::error_code error;
    fs::rename(temporaryPath, destination, error);
    if (error)
        throw FileError(name, "can't be put in its place: " + error.message());
    temporaryPath.clear();
}

void OutputFile::refuseExisting() const
{
    std::error_code none;
    const fs::file_status status = fs::status(name, none);
    if (fs::is_directory(status))
        throw FileError(name, "is a directory: give the name of a file");
    if (!overwrite && fs::exists(fs::symlink_status(name, none)))
        throw FileError(name, "exists already: --force overwrites it");
}
