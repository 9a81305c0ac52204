#include "bytes.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "error.h"
#include "interruption.h"

namespace {

constexpr int kBufferBytes = 65536;
constexpr char kStandardInput[] = "standard input"; // as messages call it
constexpr char kStandardOutput[] = "standard output";

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

// Until the other end of a pipe is ready. Another thread may get the signal that ends the wait.
void waitFor(int file, short event)
{
    constexpr int kPatience = 100; // ms
    pollfd ready{file, event, 0};
    while (untilDone([&] { return poll(&ready, 1, kPatience); }) == 0) {
    }
}

[[noreturn]] void fail(const std::string& name, const char* problem)
{
    throw FileError(name, problem + std::generic_category().message(errno));
}

// A named pipe opens once somebody has it open at the other end.
int openFile(const std::filesystem::path& path, const std::string& name, int flags)
{
    constexpr std::chrono::milliseconds kPatience(20);
    for (;;) {
        const int file =
            untilDone([&] { return open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK); });
        std::error_code none;
        if (file >= 0) {
            fcntl(file, F_SETFL, flags);
            return file;
        }
        if (errno != ENXIO || !std::filesystem::is_fifo(path, none))
            fail(name, "can't be opened: ");
        std::this_thread::sleep_for(kPatience);
    }
}

// A pipe that is ready takes PIPE_BUF bytes without a wait.
void writeAll(int file, const std::string& name, const void* from, size_t bytes, size_t atOnce)
{
    for (size_t done = 0; done < bytes;) {
        waitFor(file, POLLOUT);
        const ssize_t count = untilDone([&] {
            return write(file, static_cast<const char*>(from) + done,
                         std::min(bytes - done, atOnce));
        });
        if (count < 0 && errno == EPIPE)
            throw ReaderGone();
        if (count < 0)
            fail(name, "can't be written: ");
        done += size_t(count);
    }
}

// What comes out of a pipe after `start`, in a file that has no name.
Descriptor storePipe(int pipe, const std::string& name, const std::vector<uint8_t>& start)
{
    constexpr char kProblem[] = "has to be read more than once, but can't be stored: ";
    std::error_code none;
    Descriptor store(open(std::filesystem::temp_directory_path(none).c_str(),
                          O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (store < 0) // the file system there may know no such files
        if (const std::unique_ptr<std::FILE, int (*)(std::FILE*)> named(std::tmpfile(),
                                                                        std::fclose);
            named != nullptr)
            store = Descriptor(fcntl(fileno(named.get()), F_DUPFD_CLOEXEC, 0));
    if (store < 0)
        fail(name, kProblem);
    const auto put = [&](const std::vector<uint8_t>& block) {
        for (size_t done = 0; done < block.size();) {
            const ssize_t count =
                untilDone([&] { return ::write(store, block.data() + done, block.size() - done); });
            if (count < 0)
                fail(name, kProblem);
            done += size_t(count);
        }
    };
    put(start);
    std::vector<uint8_t> block;
    do {
        block.resize(kBufferBytes);
        waitFor(pipe, POLLIN);
        const ssize_t count = untilDone([&] { return ::read(pipe, block.data(), block.size()); });
        if (count < 0)
            fail(name, "can't be read: ");
        block.resize(size_t(count));
        put(block);
    } while (!block.empty());
    lseek(store, 0, SEEK_SET);
    return store;
}

std::string shownInput(const std::string& path)
{
    return path == kPipe ? kStandardInput : path;
}

int standardInput()
{
    if (isatty(STDIN_FILENO) != 0)
        throw FileError(kStandardInput, "is a terminal: pipe sound into it, or name a file");
    return STDIN_FILENO;
}

int standardOutput()
{
    if (isatty(STDOUT_FILENO) != 0)
        throw FileError(kStandardOutput, "is a terminal, which can't show sound: pipe it into a "
                                         "player, or name a file");
    return STDOUT_FILENO;
}

} // namespace

Bytes Bytes::input(const std::string& path, int stored)
{
    if (stored != kNotStored) {
        lseek(stored, 0, SEEK_SET);
        return {shownInput(path), Descriptor(fcntl(stored, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
                false};
    }
    if (path == kPipe)
        return {kStandardInput, Descriptor(standardInput()), false};
    return {path, Descriptor(openFile(path, path, O_RDONLY)), false};
}

Bytes Bytes::output(const std::filesystem::path& path, const std::string& name)
{
    if (path == kPipe)
        return {kStandardOutput, Descriptor(standardOutput()), true};
    return {name, Descriptor(openFile(path, name, O_WRONLY)), true};
}

Bytes::Bytes(std::string name, Descriptor opened, bool isOutput)
    : shownName(std::move(name)), file(std::move(opened))
{
    struct stat status {};
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
        (!isOutput || (fcntl(file, F_GETFL) & O_APPEND) == 0))
        origin = lseek(file, 0, SEEK_CUR);
    if (!isOutput)
        readStart();

    const auto readBlock = [](void* self, uint8_t* to, int bytes) {
        auto* const from = static_cast<Bytes*>(self);
        return int(from->guarded([&] { return from->read(to, size_t(bytes)); }));
    };
    const auto writeBlock = [](void* self, uint8_t* from, int bytes) {
        auto* const to = static_cast<Bytes*>(self);
        return int(to->guarded([&] { return to->write(from, size_t(bytes)); }));
    };
    const auto move = [](void* self, int64_t offset, int whence) {
        return static_cast<Bytes*>(self)->seek(offset, whence);
    };
    auto* const buffer = static_cast<uint8_t*>(av_malloc(kBufferBytes));
    io.reset(avio_alloc_context(buffer, kBufferBytes, isOutput, this, readBlock, writeBlock, move));
    if (io == nullptr)
        throw std::bad_alloc();
    if (!isFile())
        io->seekable = 0;
}

Descriptor Bytes::storedIfPipe(const std::string& path)
{
    std::error_code none;
    const bool isStandard = path == kPipe;
    if (std::filesystem::is_regular_file(isStandard ? "/dev/stdin" : path, none))
        return Descriptor(kNotStored);
    const Descriptor pipe(isStandard ? standardInput() : openFile(path, path, O_RDONLY));
    return storePipe(pipe, shownInput(path), {});
}

void Bytes::store()
{
    file = storePipe(file, shownName, startBytes);
    origin = 0;
    io->seekable = AVIO_SEEKABLE_NORMAL;
}

Descriptor::~Descriptor()
{
    if (number > STDERR_FILENO)
        close(number);
}

Bytes::~Bytes()
{
    if (file == STDIN_FILENO && origin >= 0)
        lseek(file, origin, SEEK_SET);
}

void Bytes::rethrow()
{
    if (failure)
        std::rethrow_exception(failure);
}

void Bytes::put(const std::string& text)
{
    avio_write(io.get(), reinterpret_cast<const uint8_t*>(text.data()), int(text.size()));
    avio_flush(io.get());
    rethrow();
}

void Bytes::endAt(int64_t length)
{
    if (ftruncate(file, origin + length) != 0)
        fail(shownName, "can't be written: ");
}

void Bytes::sync()
{
    if (fsync(file) != 0 && errno != EINVAL && errno != EROFS)
        fail(shownName, "can't be written: ");
}

template <class Call>
int64_t Bytes::guarded(Call call) noexcept
{
    try {
        return failure ? AVERROR_EXIT : int64_t(call());
    } catch (...) {
        failure = std::current_exception();
        return AVERROR_EXIT;
    }
}

void Bytes::readStart()
{
    startBytes.resize(4096);
    size_t done = 0;
    while (done < startBytes.size()) {
        waitFor(file, POLLIN);
        const ssize_t count = untilDone(
            [&] { return ::read(file, startBytes.data() + done, startBytes.size() - done); });
        if (count < 0)
            fail(shownName, "can't be read: ");
        if (count == 0)
            break;
        done += size_t(count);
    }
    startBytes.resize(done);
    if (isFile())
        lseek(file, origin, SEEK_SET);
}

int64_t Bytes::read(uint8_t* to, size_t bytes)
{
    const int64_t count = readSome(to, bytes);
    if (count <= 0)
        return count;
    const int64_t seen = placeWatched - place;
    place += count;
    if (watcher && seen >= 0 && seen < count) {
        watcher(to + seen, size_t(count - seen));
        placeWatched = place;
    }
    return count;
}

int64_t Bytes::readSome(uint8_t* to, size_t bytes)
{
    if (!isFile() && startBytesRead < startBytes.size()) {
        const size_t count = std::min(bytes, startBytes.size() - startBytesRead);
        std::memcpy(to, startBytes.data() + startBytesRead, count);
        startBytesRead += count;
        return int64_t(count);
    }
    waitFor(file, POLLIN);
    const ssize_t count = untilDone([&] { return ::read(file, to, bytes); });
    if (count < 0)
        fail(shownName, "can't be read: ");
    return count == 0 ? AVERROR_EOF : count;
}

int64_t Bytes::write(const uint8_t* from, size_t bytes)
{
    constexpr size_t kWorthIt = size_t(1) << 23;
    writeAll(file, shownName, from, bytes, isFile() ? bytes : PIPE_BUF);
    unsyncedBytes += bytes;
    if (isFile() && unsyncedBytes >= kWorthIt) {
        sync_file_range(file, 0, 0, SYNC_FILE_RANGE_WRITE); // begins, so that sync is soon done
        unsyncedBytes = 0;
    }
    return int64_t(bytes);
}

int64_t Bytes::seek(int64_t offset, int whence)
{
    if (!isFile()) // of no known size, which FFmpeg's reader of MP3 takes an error for
        return (whence & AVSEEK_SIZE) != 0 ? 0 : AVERROR(ESPIPE);
    if ((whence & AVSEEK_SIZE) != 0) {
        struct stat status {};
        return fstat(file, &status) == 0 ? status.st_size - origin : AVERROR(errno);
    }
    whence &= ~AVSEEK_FORCE;
    const int64_t position = lseek(file, whence == SEEK_SET ? origin + offset : offset, whence);
    if (position < 0)
        return AVERROR(errno);
    return place = position - origin;
}

void writeOutput(const void* from, size_t bytes)
{
    writeAll(STDOUT_FILENO, kStandardOutput, from, bytes, PIPE_BUF);
}
