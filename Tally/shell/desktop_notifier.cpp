#include "shell/desktop_notifier.h"

#include "shell/theme.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QImage>
#include <QThread>
#include <QVariantMap>

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
const QString kAppName = QStringLiteral("Tally");
const QString kAppIcon = QStringLiteral("app.tally.Tally");
constexpr int kImageSize = 64;
constexpr uchar kNormalUrgency = 1;

// The image-data hint: raw non-premultiplied RGBA rows, marshalled as (iiibiiay).
struct NotificationImage {
    int width = 0;
    int height = 0;
    int rowStride = 0;
    bool hasAlpha = true;
    int bitsPerSample = 8;
    int channels = 4;
    QByteArray data;
};

QDBusArgument& operator<<(QDBusArgument& out, const NotificationImage& image) {
    out.beginStructure();
    out << image.width << image.height << image.rowStride << image.hasAlpha << image.bitsPerSample
        << image.channels << image.data;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, NotificationImage& image) {
    in.beginStructure();
    in >> image.width >> image.height >> image.rowStride >> image.hasAlpha >> image.bitsPerSample >>
        image.channels >> image.data;
    in.endStructure();
    return in;
}

}  // namespace

Q_DECLARE_METATYPE(NotificationImage)

namespace tally {

namespace {

NotificationImage flameImage() {
    const QImage image = Theme::flame(true, Theme::accent())
                             .pixmap(kImageSize, kImageSize)
                             .toImage()
                             .convertToFormat(QImage::Format_RGBA8888);
    NotificationImage out;
    out.width = image.width();
    out.height = image.height();
    out.rowStride = static_cast<int>(image.bytesPerLine());
    out.data = QByteArray(reinterpret_cast<const char*>(image.constBits()),
                          static_cast<qsizetype>(image.sizeInBytes()));
    return out;
}

}  // namespace

DesktopNotifier::DesktopNotifier(QObject* parent)
    : QObject(parent), m_bus(QDBusConnection::sessionBus()) {
    qDBusRegisterMetaType<NotificationImage>();
    if (!m_bus.isConnected()) {
        m_service = Service::absent;
        return;
    }
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                  SLOT(serviceClosed(uint, uint)));
    m_watcher =
        new QDBusServiceWatcher(kService, m_bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(m_watcher, &QDBusServiceWatcher::serviceRegistered, this, [this] {
        ++m_lookup;
        settle(Service::present);
    });
    // A new owner numbers its notifications afresh; one the bus can start is still there.
    connect(m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, [this] {
        m_ids.clear();
        lookUpService();
    });
    lookUpService();
}

bool DesktopNotifier::isAuthorized() {
    return m_service.load() != Service::absent;
}

void DesktopNotifier::post(const usagekit::Notification& notification) {
    if (m_service.load() == Service::absent) return;
    if (QThread::currentThread() == thread()) {
        send(notification);
        return;
    }
    QMetaObject::invokeMethod(
        this, [this, notification] { send(notification); }, Qt::QueuedConnection);
}

// Is the name owned now, or can the bus start its owner on the first call? Both asked
// asynchronously; only the newest look-up may settle the answer.
void DesktopNotifier::lookUpService() {
    const int lookup = ++m_lookup;
    const auto ask = [this](const QString& method, const QVariantList& arguments) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), method);
        call.setArguments(arguments);
        return new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    };
    auto* owned = ask(QStringLiteral("NameHasOwner"), {kService});
    connect(owned, &QDBusPendingCallWatcher::finished, this,
            [this, lookup, ask](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                if (lookup != m_lookup) return;
                const QDBusPendingReply<bool> reply = *call;
                if (!reply.isError() && reply.value()) {
                    settle(Service::present);
                    return;
                }
                auto* startable = ask(QStringLiteral("ListActivatableNames"), {});
                connect(startable, &QDBusPendingCallWatcher::finished, this,
                        [this, lookup](QDBusPendingCallWatcher* names) {
                            names->deleteLater();
                            if (lookup != m_lookup) return;
                            const QDBusPendingReply<QStringList> list = *names;
                            const bool known = !list.isError() && list.value().contains(kService);
                            settle(known ? Service::present : Service::absent);
                        });
            });
}

void DesktopNotifier::settle(Service service) {
    m_service = service;
    std::vector<usagekit::Notification> early;
    early.swap(m_early);
    if (service == Service::absent) {
        m_waiting.clear();
        return;
    }
    for (const usagekit::Notification& notification : early)
        send(notification);
}

void DesktopNotifier::send(const usagekit::Notification& notification) {
    switch (m_service.load()) {
        case Service::absent:
            return;
        case Service::unknown:
            m_early.push_back(notification);
            return;
        case Service::present:
            break;
    }
    const QString identifier = QString::fromStdString(notification.identifier);
    const bool tracked = !identifier.isEmpty();
    if (tracked && m_inFlight.contains(identifier)) {
        m_waiting.insert(identifier, notification);
        return;
    }

    QVariantMap hints;
    hints.insert(QStringLiteral("urgency"), QVariant::fromValue(kNormalUrgency));
    hints.insert(QStringLiteral("desktop-entry"), kAppIcon);
    hints.insert(QStringLiteral("image-data"), QVariant::fromValue(flameImage()));
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    call << kAppName << (tracked ? m_ids.value(identifier, 0u) : 0u) << kAppIcon
         << QString::fromStdString(notification.title) << QString::fromStdString(notification.body)
         << QStringList() << hints << -1;

    if (tracked) m_inFlight.insert(identifier);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, identifier, tracked](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                const QDBusPendingReply<uint> reply = *call;
                if (tracked)
                    answered(identifier, !reply.isError(), reply.isError() ? 0u : reply.value());
            });
}

void DesktopNotifier::answered(const QString& identifier, bool ok, uint id) {
    m_inFlight.remove(identifier);
    if (ok) m_ids.insert(identifier, id);
    const auto waiting = m_waiting.find(identifier);
    if (waiting == m_waiting.end()) return;
    const usagekit::Notification next = *waiting;
    m_waiting.erase(waiting);
    send(next);
}

void DesktopNotifier::serviceClosed(uint id, uint /*reason*/) {
    for (auto it = m_ids.begin(); it != m_ids.end();) {
        if (it.value() == id)
            it = m_ids.erase(it);
        else
            ++it;
    }
}

}  // namespace tally
