#include "watch/StopSignals.hpp"

namespace Zel::Tools::Nimhost {

namespace {

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void RequestStop(int)
{
    stopRequested = 1;
}

} // namespace

StopSignals::StopSignals()
{
    stopRequested = 0;
    struct sigaction action {};
    action.sa_handler = RequestStop;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &previousInt);
    ::sigaction(SIGTERM, &action, &previousTerm);
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &stops, &previousMask);
    waitMask = previousMask;
    sigdelset(&waitMask, SIGINT);
    sigdelset(&waitMask, SIGTERM);
}

StopSignals::~StopSignals()
{
    ::sigprocmask(SIG_SETMASK, &previousMask, nullptr);
    ::sigaction(SIGINT, &previousInt, nullptr);
    ::sigaction(SIGTERM, &previousTerm, nullptr);
}

bool StopSignals::Requested()
{
    return stopRequested != 0;
}

} // namespace Zel::Tools::Nimhost
