#pragma once

#include <QObject>

#include <initializer_list>
#include <memory>

class QSocketNotifier;

// Turns Unix signals into a Qt signal. The handler only writes the signal
// number into a socket pair; the event loop reads it, so nothing unsafe
// runs inside the handler. One watcher per process.
class SignalWatcher : public QObject
{
  Q_OBJECT

public:
  explicit SignalWatcher(std::initializer_list<int> watched, QObject* parent = nullptr);
  ~SignalWatcher() override;

  bool isValid() const { return FNotifier != nullptr; }

Q_SIGNALS:
  void caught(int signalNumber);

private:
  static void handler(int signalNumber);
  void onReadable();

  std::unique_ptr<QSocketNotifier> FNotifier;
  QList<int> FWatched;
};
