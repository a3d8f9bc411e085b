#include "stopsignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int signalPipe[2] = {-1, -1};
pid_t owner = 0;

// Only a byte into the pipe: the event loop does the rest. A child forked for a tool
// shares the handler and the pipe until it runs the tool; a signal to the process group
// in that moment is the program's, and counts once.
void onSignal(int number)
{
    if (getpid() != owner)
        return;
    const int saved = errno; // the interrupted code may be about to read it
    const char byte = number == SIGHUP ? 2 : 1;
    [[maybe_unused]] const ssize_t ignored = write(signalPipe[1], &byte, 1);
    errno = saved;
}
} // namespace

StopSignals::StopSignals(QObject *parent) : QObject(parent)
{
    std::signal(SIGPIPE, SIG_IGN);
    if (signalPipe[0] < 0 && socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    owner = getpid();
    struct sigaction action = {};
    action.sa_handler = onSignal;
    // A reload comes during work: reads and writes of other threads go on, not fail.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        [[maybe_unused]] const ssize_t ignored = read(signalPipe[0], &byte, 1);
        if (byte == 2)
            emit reloadRequested();
        else
            emit stopRequested();
    });
}

void StopSignals::listenForReload()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    // A reload comes during work: reads and writes of other threads go on, not fail.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGHUP, &action, nullptr);
}

StopSignals::~StopSignals()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGHUP, SIG_DFL);
}
