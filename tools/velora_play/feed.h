// Decodes a file ahead of what sounds, in a thread of its own, from wherever the listener wants to go.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "frame_queue.h"
#include "mailbox.h"
#include "media_input.h"
#include "sound_decoder.h"

/// Where to go on decoding, and what to repeat from there on. Counted in media frames.
struct Order {
    int64_t serial; // 1 or more
    int64_t media;
    int64_t loopFrom;
    int64_t loopTo; // Feed::kNoLoop if nothing is repeated
};

/// What is special about the frame at a position of the queue.
struct Mark {
    enum class Kind {
        loop,  // `media` follows what lies before it
        order, // here is what an order asked for
        end    // no frame follows until the next order
    };
    Kind kind;
    int64_t position; // in the queue
    int64_t media;    // media frame that is there
    int64_t serial;   // of the order
};

class Feed {
public:
    static constexpr int64_t kNoLoop = std::numeric_limits<int64_t>::max();
    static constexpr size_t kMarks = 1024;
    static constexpr size_t kOrders = 64;

    /// Starts to open a file and to decode it.
    explicit Feed(const std::string& path);
    ~Feed();
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    /// Whether a path is that of a file rather than of a pipe, which gives what it holds but once.
    static bool canGoBackIn(const std::string& path);

    /// Whether there is enough to begin with, or nothing will ever be.
    bool isReady() const { return ready.load(std::memory_order_acquire); }
    /// Whether all is decoded that the listener has asked for.
    bool isAllDecoded() const { return ended.load(std::memory_order_acquire); }
    /// Ends the thread and closes the file.
    /// @return what went wrong; empty if nothing did
    std::string stop();

    // Once it is ready.

    /// Whether there is sound: not if the file can't be opened.
    bool hasSound() const { return queue != nullptr; }
    int rate() const { return hertz; }
    int channels() const { return width; }
    /// Media frames there are, or seem to be; 0 if nothing tells.
    int64_t duration() const { return length; }
    /// Whether orders can be obeyed; not what comes through a pipe.
    bool canSeek() const { return isFile; }

    // For the audio callback: these neither wait nor allocate.
    FrameQueue& frames() { return *queue; }
    Mailbox<Mark, kMarks>& marks() { return marked; }
    bool give(const Order& order) { return orders.put(order); }

private:
    void run();
    void open();
    void decodeAll();
    void endEarly();
    bool obey();
    bool takeOrder();
    void decodeMore();
    void goTo(int64_t media);
    void reopen();
    void openTrack();
    void pass(int64_t frames);
    void mark(Mark::Kind kind, int64_t media);
    bool waitForRoom(int64_t frames);
    int64_t firstOfBlock(int64_t count) const;

    std::string path;
    bool isFile;
    std::unique_ptr<MediaInput> input;
    const AVStream* track = nullptr;
    std::unique_ptr<SoundDecoder> decoder;
    AvPtr<AVPacket> packet{av_packet_alloc()};
    int hertz = 0;
    int width = 0;
    int64_t length = 0;
    double origin = 0.0; // seconds of the file's clock at which media frame 0 sounds
    bool knowsOrigin = false;
    bool counts = true; // from the start of the file: frame by frame
    bool atEnd = false; // of the file
    int64_t wanted = 0; // media frame that is to come next
    Order now{0, 0, 0, kNoLoop};
    int64_t sinceOrder = 0; // position in the queue at which the order's frames begin
    Block bytes;
    std::vector<float> samples;

    std::unique_ptr<FrameQueue> queue;
    Mailbox<Mark, kMarks> marked;
    Mailbox<Order, kOrders> orders;
    std::atomic<bool> stops = false;
    std::atomic<bool> ready = false;
    std::atomic<bool> ended = false; // nothing follows until the next order
    std::string problem;
    std::thread thread;
};
