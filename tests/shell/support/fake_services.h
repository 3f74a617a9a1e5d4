// The fake desktop services of tests/shell/fakes, run as child processes on the suite's
// private session bus: a notification server, a tray watcher and a colour-scheme portal.
// Each fake writes one JSON line per call worth checking to a log file; the suite reads it.
//
// Construction starts the fake with a fresh log file as its first argument and runs the
// event loop until the fake owns its bus name (at most 10 s; running() says whether it
// did). stop() and the destructor end it and wait until the name is free again, so a test
// after it sees no such service. GUI thread of the suite only.
#pragma once

#include <QDBusMessage>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariantList>

#include <memory>

namespace tally::testing {

class FakeService {
  public:
    FakeService(const QString& program, const QString& busName, const QStringList& extra = {});
    ~FakeService();
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    // org.freedesktop.Notifications: one line per Notify (see fake_notification_server.cpp).
    static std::unique_ptr<FakeService> notificationServer();
    // org.kde.StatusNotifierWatcher: one line per item registration, with the item's
    // unique bus name and path (see fake_tray_watcher.cpp).
    static std::unique_ptr<FakeService> trayWatcher();
    // org.freedesktop.portal.Desktop answering color-scheme `scheme` (0 none, 1 dark,
    // 2 light); setColorScheme() switches it live.
    static std::unique_ptr<FakeService> portal(uint scheme);

    bool running() const;
    QString busName() const { return m_busName; }
    // Every complete line logged so far, in order.
    QList<QJsonObject> log() const;
    // Runs the event loop until the log holds at least `lines` lines; false on timeout.
    bool waitForLog(int lines, int timeoutMs = 10000) const;
    // A blocking call to the fake, which answers at once. Never use it on a service the
    // suite's own process serves: that deadlocks.
    QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                      const QVariantList& arguments = {}) const;
    // The portal only: emits SettingChanged for the new colour scheme.
    void setColorScheme(uint scheme) const;
    void stop();

  private:
    QString m_busName;
    QTemporaryDir m_dir;
    QString m_logPath;
    std::unique_ptr<QProcess> m_process;
};

}  // namespace tally::testing
