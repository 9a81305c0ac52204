// The bytes of files and pipes, as FFmpeg's libraries take and give them, which open nothing
// themselves. Waiting ends at an interruption.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "av.h"

constexpr char kPipe[] = "-"; // as a file name: standard input or output

/// Where a file name leads to.
/// @param standard  what - stands for: /dev/stdin or /dev/stdout
inline std::filesystem::path pathOf(const std::string& name, const char* standard)
{
    return name == kPipe ? standard : name;
}

/// Thrown when nobody reads the output any more.
struct ReaderGone {};

/// An open file, closed at the end unless it is one of the standard streams.
class Descriptor {
public:
    explicit Descriptor(int opened) : number(opened) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }

    operator int() const { return number; }

private:
    int number;
};

class Bytes {
public:
    /// Opens a file, a named pipe, or standard input. Throws FileError, or Interrupted.
    /// @param stored  what storedIfPipe gave for this path
    static Bytes input(const std::string& path, int stored = kNotStored);
    /// Opens a file, named pipe or device that is there, which messages call `name`, or standard
    /// output. Throws FileError, or Interrupted.
    static Bytes output(const std::filesystem::path& path, const std::string& name);
    /// Lets an input be opened more than once: stores all that comes out of a pipe. Of a file,
    /// kNotStored. Throws FileError, or Interrupted.
    static Descriptor storedIfPipe(const std::string& path);
    static constexpr int kNotStored = -1;
    /// Standard input that is a file is left where it stood.
    ~Bytes();
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    AVIOContext* context() const { return io.get(); }
    /// As messages call it.
    const std::string& name() const { return shownName; }
    /// Up to 4096 bytes that an input starts with. They will be read all the same.
    const std::vector<uint8_t>& start() const { return startBytes; }

    /// Lets somebody see each byte that an input is read from once, from the first one on, in order.
    /// To be called before anything is read.
    void watch(std::function<void(const uint8_t*, size_t)> seen) { watcher = std::move(seen); }

    /// Whether it can be gone back in.
    bool isFile() const { return origin >= 0; }
    /// Makes a file of a pipe that nothing has been read from: stores all that comes out of it, in a
    /// file without a name. Throws FileError, or Interrupted.
    void store();

    /// To be called after each call that may have read or written: throws FileError, ReaderGone or
    /// Interrupted where one stopped it, as C passes no exceptions on.
    void rethrow();
    /// Writes a text of its own, whole. Throws FileError, ReaderGone or Interrupted.
    void put(const std::string& text);
    /// Cuts what comes behind in an output that is a file. Throws FileError.
    void endAt(int64_t length);
    /// Makes sure that a file has reached the disk. Throws FileError.
    void sync();

private:
    Bytes(std::string name, Descriptor opened, bool isOutput);

    template <class Call>
    int64_t guarded(Call call) noexcept;
    void readStart();
    int64_t read(uint8_t* to, size_t bytes);
    int64_t readSome(uint8_t* to, size_t bytes);
    int64_t write(const uint8_t* from, size_t bytes);
    int64_t seek(int64_t offset, int whence);

    std::string shownName;
    Descriptor file;
    int64_t origin = -1; // where in a file the first byte stands; -1 if it can't be gone back in
    std::vector<uint8_t> startBytes;
    size_t startBytesRead = 0; // in a pipe
    int64_t place = 0;         // of an input, at which the next byte is read
    int64_t placeWatched = 0;  // up to which all was seen
    std::function<void(const uint8_t*, size_t)> watcher;
    size_t unsyncedBytes = 0;
    std::exception_ptr failure;
    AvPtr<AVIOContext> io;
};

/// Writes to standard output.
void writeOutput(const void* from, size_t bytes);
