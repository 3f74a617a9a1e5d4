// Shows UsageKit's notifications through the desktop's notification service
// (org.freedesktop.Notifications on the session bus) as "Tally", with the app icon name
// "app.tally.Tally" and the filled flame itself as the image-data hint (the icon name only
// resolves where the app is installed; the pixels always do), at normal urgency.
//
// A later notification with the same identifier replaces the earlier one in place: the id
// the service returned for an identifier is sent as replaces_id. While the id of the first
// post is still on its way, a second post for the same identifier waits for it (only the
// newest waiting post is kept). A notification the service reports closed is forgotten, so
// the next one under its identifier appears anew.
//
// No service on the bus (and none the bus could start): posts are dropped; nothing fails,
// nothing waits. Whether the service exists is asked without blocking at construction and
// again whenever its name changes owner; posts made before the first answer wait for it.
//
// Threads: constructed, used and destroyed on the GUI thread, which renders the icon and
// carries the bus traffic. post(), isAuthorized() and requestAuthorization() may be called
// from any thread: post() hands the work to the notifier's thread and returns at once. The
// notifier must outlive every caller (the app owns it for as long as the model runs).
#pragma once

#include "limits/notifier.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <atomic>
#include <vector>

class QDBusServiceWatcher;

namespace tally {

class DesktopNotifier : public QObject, public usagekit::Notifier {
    Q_OBJECT
  public:
    explicit DesktopNotifier(QObject* parent = nullptr);

    // Nothing to ask: on Linux the notification service decides what it shows.
    void requestAuthorization() override {}
    // True while a notification service is present or not yet known to be missing (a post
    // made meanwhile waits for the answer); false once the bus says there is none.
    bool isAuthorized() override;
    void post(const usagekit::Notification& notification) override;

  private slots:
    // The service's NotificationClosed(u id, u reason); a SLOT string is what QtDBus takes.
    void serviceClosed(uint id, uint reason);

  private:
    enum class Service { unknown, present, absent };

    void lookUpService();
    void settle(Service service);
    void send(const usagekit::Notification& notification);
    void answered(const QString& identifier, bool ok, uint id);

    QDBusConnection m_bus;
    QDBusServiceWatcher* m_watcher = nullptr;
    std::atomic<Service> m_service{Service::unknown};
    int m_lookup = 0;  // a look-up's answer counts only while it is the newest one

    QHash<QString, uint> m_ids;                        // identifier → id on screen
    QSet<QString> m_inFlight;                          // identifiers awaiting their id
    QHash<QString, usagekit::Notification> m_waiting;  // newest post behind an in-flight one
    std::vector<usagekit::Notification> m_early;       // posts before the service was known
};

}  // namespace tally
