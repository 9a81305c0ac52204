#include "standard_stream.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "error.h"
#include "interruption.h"

namespace {

// What a signal has cut short is done again, unless the signal was meant to stop us.
template <class Call>
auto untilDone(Call call)
{
    for (;;) {
        throwIfInterrupted();
        const auto result = call();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

[[noreturn]] void fail(const std::string& name, const char* problem)
{
    throw FileError(name, problem + std::generic_category().message(errno));
}

} // namespace

void takeInputFrom(const std::string& pipe)
{
    const int opened = untilDone([&] { return open(pipe.c_str(), O_RDONLY); });
    if (opened < 0 || dup2(opened, STDIN_FILENO) < 0)
        fail(pipe, "can't be opened: ");
    if (opened != STDIN_FILENO)
        close(opened);
}

size_t readInput(void* to, size_t bytes)
{
    size_t done = 0;
    while (done < bytes) {
        const ssize_t count = untilDone(
            [&] { return read(STDIN_FILENO, static_cast<char*>(to) + done, bytes - done); });
        if (count < 0)
            fail(kStandardInput, "can't be read: ");
        if (count == 0)
            break;
        done += size_t(count);
    }
    return done;
}

void writeOutput(const void* from, size_t bytes)
{
    for (size_t done = 0; done < bytes;) {
        const ssize_t count = untilDone([&] {
            return write(STDOUT_FILENO, static_cast<const char*>(from) + done, bytes - done);
        });
        if (count < 0 && errno == EPIPE)
            throw ReaderGone();
        if (count < 0)
            fail(kStandardOutput, "can't be written: ");
        done += size_t(count);
    }
}

long outputPosition()
{
    struct stat status {};
    if (fstat(STDOUT_FILENO, &status) != 0 || !S_ISREG(status.st_mode) ||
        (fcntl(STDOUT_FILENO, F_GETFL) & O_APPEND) != 0)
        return -1;
    return long(lseek(STDOUT_FILENO, 0, SEEK_CUR));
}

void rewriteOutput(long position, const void* from, size_t bytes)
{
    if (pwrite(STDOUT_FILENO, from, bytes, position) != ssize_t(bytes))
        fail(kStandardOutput, "can't be written: ");
}
