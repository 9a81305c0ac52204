#include "terminal.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <initializer_list>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace {

// What a signal handler needs.
int keys = -1;
bool hidesCursor = false;
volatile std::sig_atomic_t hasStopped = 0; // since a line was shown
termios before{};
termios ours{};

void put(const char* bytes, size_t count)
{
    while (count > 0) {
        const ssize_t written = write(STDOUT_FILENO, bytes, count);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        bytes += written;
        count -= size_t(written);
    }
}

// In the background the terminal is another's: who touches it there is stopped. One that isn't the
// controlling terminal knows no background.
bool hasKeys()
{
    if (keys < 0)
        return false;
    const pid_t owner = tcgetpgrp(keys);
    return owner < 0 || owner == getpgrp();
}

void take()
{
    if (hasKeys())
        tcsetattr(keys, TCSADRAIN, &ours);
    if (hidesCursor)
        put("\033[?25l", 6);
}

void giveBack()
{
    if (hasKeys())
        tcsetattr(keys, TCSANOW, &before);
    if (hidesCursor)
        put("\r\033[K\033[?25h", 10);
}

void giveBackAndDie(int signal)
{
    giveBack();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void giveBackWhileStopped(int)
{
    const int error = errno;
    giveBack();
    std::raise(SIGSTOP);
    errno = error;
}

void takeAgain(int)
{
    const int error = errno;
    take();
    hasStopped = 1;
    errno = error;
}

// Those that don't end the program in an orderly way.
void watchSignals()
{
    for (const int signal : {SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGALRM, SIGUSR1,
                             SIGUSR2, SIGXCPU, SIGSYS, SIGTRAP})
        std::signal(signal, giveBackAndDie);
    struct sigaction action {};
    action.sa_flags = SA_RESTART;
    action.sa_handler = giveBackWhileStopped;
    sigaction(SIGTSTP, &action, nullptr);
    action.sa_handler = takeAgain; // stopped by whatever signal, or brought to the foreground
    sigaction(SIGCONT, &action, nullptr);
}

} // namespace

Terminal::Terminal(bool inputIsPlayed) : showsLine(isatty(STDOUT_FILENO) != 0)
{
    keys = inputIsPlayed ? open("/dev/tty", O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
    if (keys >= 0 && tcgetattr(keys, &before) != 0)
        keys = -1;
    hidesCursor = showsLine;
    ours = before;
    ours.c_lflag &= ~tcflag_t(ICANON | ECHO);
    ours.c_cc[VMIN] = 0;
    ours.c_cc[VTIME] = 0;
    if (keys >= 0 || hidesCursor)
        watchSignals();
    take();
}

Terminal::~Terminal()
{
    giveBack();
    keys = -1;
    hidesCursor = false;
}

void Terminal::read(std::string& typed, int milliseconds)
{
    pollfd ready{hasKeys() ? keys : -1, POLLIN, 0}; // of no file if there are no keys
    if (poll(&ready, 1, milliseconds) <= 0)
        return;
    char bytes[64];
    const ssize_t count = ::read(keys, bytes, sizeof bytes);
    if (count > 0)
        typed.append(bytes, size_t(count));
    else
        poll(nullptr, 0, milliseconds); // the terminal is gone
}

// The old line is overwritten rather than cleared, in one go, so nothing flickers.
void Terminal::show(const std::string& line)
{
    if (!showsLine || (line == shown && hasStopped == 0))
        return;
    hasStopped = 0;
    const std::string bytes = "\r\033[?7l" + line + "\033[K\033[?7h";
    put(bytes.data(), bytes.size());
    shown = line;
}

void Terminal::endLine()
{
    if (showsLine && !shown.empty())
        put("\r\033[K", 4);
    shown.clear();
}
