// A tray host for the desktop-app suites: owns org.kde.StatusNotifierWatcher on the session
// bus at /StatusNotifierWatcher with a host registered, which is all Qt needs to show its
// tray icon over D-Bus. Each RegisterStatusNotifierItem call is written as one JSON line,
// flushed at once, to the file named by the first argument:
//   {"sender": ":1.4", "service": "<argument>", "name": "<bus name>", "path": "/..."}
// where name + path address the item (an argument that is a path belongs to the sender).
// An item whose owner leaves the bus is dropped. Exits 1 when the name is taken.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QStringList>

#include <cstdio>

namespace {

class Watcher : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
  public:
    Watcher(QFile& log, QDBusConnection bus) : m_log(log) {
        m_owners.setConnection(bus);
        m_owners.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
        connect(&m_owners, &QDBusServiceWatcher::serviceUnregistered, this, &Watcher::ownerLeft);
    }
    bool hostRegistered() const { return true; }
    QStringList items() const { return m_items; }
    int protocolVersion() const { return 0; }

  public slots:
    void RegisterStatusNotifierItem(const QString& service) {
        const QString sender = message().service();
        const bool isPath = service.startsWith(QLatin1Char('/'));
        const QString name = isPath ? sender : service;
        const QString path = isPath ? service : QStringLiteral("/StatusNotifierItem");
        const QJsonObject line{{QStringLiteral("sender"), sender},
                               {QStringLiteral("service"), service},
                               {QStringLiteral("name"), name},
                               {QStringLiteral("path"), path}};
        m_log.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
        m_log.flush();
        const QString item = name + path;
        if (!m_items.contains(item)) m_items.append(item);
        m_owners.addWatchedService(name);
        emit StatusNotifierItemRegistered(item);
    }
    void RegisterStatusNotifierHost(const QString&) { emit StatusNotifierHostRegistered(); }

  signals:
    void StatusNotifierItemRegistered(const QString& item);
    void StatusNotifierItemUnregistered(const QString& item);
    void StatusNotifierHostRegistered();

  private:
    void ownerLeft(const QString& name) {
        m_owners.removeWatchedService(name);
        for (auto it = m_items.begin(); it != m_items.end();) {
            if (it->startsWith(name + QLatin1Char('/'))) {
                const QString item = *it;
                it = m_items.erase(it);
                emit StatusNotifierItemUnregistered(item);
            } else {
                ++it;
            }
        }
    }

    QFile& m_log;
    QDBusServiceWatcher m_owners;
    QStringList m_items;
};

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: fake_tray_watcher LOG\n");
        return 1;
    }
    QFile log(QString::fromLocal8Bit(argv[1]));
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append)) return 1;
    QDBusConnection bus = QDBusConnection::sessionBus();
    Watcher watcher(log, bus);
    if (!bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), &watcher,
                            QDBusConnection::ExportAllContents))
        return 1;
    if (!bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"))) return 1;
    return app.exec();
}

#include "fake_tray_watcher.moc"
