#include "SignalWatcher.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
int PipeFds[2] = {-1, -1}; // [0] written by the handler, [1] read by the loop
} // namespace

SignalWatcher::SignalWatcher(std::initializer_list<int> watched, QObject* parent)
    : QObject(parent), FWatched(watched)
{
  Q_ASSERT(PipeFds[0] < 0);
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, PipeFds) != 0)
    return;
  ::fcntl(PipeFds[0], F_SETFL, ::fcntl(PipeFds[0], F_GETFL) | O_NONBLOCK);
  ::fcntl(PipeFds[1], F_SETFL, ::fcntl(PipeFds[1], F_GETFL) | O_NONBLOCK);
  FNotifier = std::make_unique<QSocketNotifier>(PipeFds[1], QSocketNotifier::Read);
  connect(FNotifier.get(), &QSocketNotifier::activated, this, &SignalWatcher::onReadable);

  struct sigaction action = {};
  action.sa_handler = &SignalWatcher::handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (int s : FWatched)
    ::sigaction(s, &action, nullptr);
}

SignalWatcher::~SignalWatcher()
{
  for (int s : FWatched)
    ::signal(s, SIG_DFL);
  FNotifier.reset();
  for (int& fd : PipeFds)
  {
    if (fd >= 0)
      ::close(fd);
    fd = -1;
  }
}

void SignalWatcher::handler(int signalNumber)
{
  const int saved = errno;
  const unsigned char byte = static_cast<unsigned char>(signalNumber);
  // A full buffer means a wake-up is already pending; losing this one is fine.
  [[maybe_unused]] const ssize_t n = ::write(PipeFds[0], &byte, 1);
  errno = saved;
}

void SignalWatcher::onReadable()
{
  unsigned char bytes[16];
  const ssize_t n = ::read(PipeFds[1], bytes, sizeof bytes);
  for (ssize_t i = 0; i < n; ++i)
    Q_EMIT caught(bytes[i]);
}
