// One Tally per user: the first instance listens on a local socket named after the user;
// a later one asks it to show its dashboard and exits. A socket left behind by a killed
// instance is removed when nobody answers on it. GUI thread only; lives as long as the app.
#pragma once

#include <QLocalServer>
#include <QObject>

namespace tally {

class SingleInstance : public QObject {
    Q_OBJECT
  public:
    explicit SingleInstance(QObject* parent = nullptr);

    // True when another instance answered and was asked to show itself: this process
    // should then exit. Otherwise this instance starts listening and returns false.
    bool askRunningToShow();

    // Per user; a scratch support directory (TALLY_SUPPORT_DIR) gets a socket of its own.
    static QString socketName();

  signals:
    void showRequested();

  private:
    QLocalServer m_server;
};

}  // namespace tally
