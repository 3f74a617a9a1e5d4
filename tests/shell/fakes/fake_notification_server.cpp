// A notification service for the desktop-app suites: owns org.freedesktop.Notifications on
// the session bus and writes one JSON line per Notify call to the file named by its first
// argument, flushed at once, so a suite can read exactly what the app posted:
//   {"app", "replacesId", "appIcon", "summary", "body", "actions", "timeout", "id",
//    "hints": {name: value}, "hintTypes": {name: D-Bus signature}}
// image-data is logged as {"width", "height", "bytes"}. Ids count up from 1; a non-zero
// replaces_id is answered with itself. CloseNotification emits NotificationClosed(id, 3).
// Exits 1 when the name is taken or the log cannot be opened.
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QSet>
#include <QVariantMap>

#include <cstdio>

namespace {

QJsonValue plain(const QVariant& value) {
    switch (value.metaType().id()) {
        case QMetaType::Bool:
            return value.toBool();
        case QMetaType::QString:
            return value.toString();
        case QMetaType::QStringList:
            return QJsonArray::fromStringList(value.toStringList());
        default:
            break;
    }
    bool number = false;
    const double asNumber = value.toDouble(&number);
    return number ? QJsonValue(asNumber) : QJsonValue(value.toString());
}

QJsonValue image(const QDBusArgument& argument) {
    int width = 0, height = 0, stride = 0, bits = 0, channels = 0;
    bool alpha = false;
    QByteArray data;
    argument.beginStructure();
    argument >> width >> height >> stride >> alpha >> bits >> channels >> data;
    argument.endStructure();
    return QJsonObject{{QStringLiteral("width"), width},
                       {QStringLiteral("height"), height},
                       {QStringLiteral("bytes"), static_cast<double>(data.size())}};
}

class Server : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
  public:
    explicit Server(QFile& log) : m_log(log) {}

  public slots:
    uint Notify(const QString& app, uint replacesId, const QString& appIcon, const QString& summary,
                const QString& body, const QStringList& actions, const QVariantMap& hints,
                int timeout) {
        const uint id = replacesId != 0 ? replacesId : m_next++;
        m_open.insert(id);
        QJsonObject values, types;
        for (auto it = hints.begin(); it != hints.end(); ++it) {
            if (it->userType() == qMetaTypeId<QDBusArgument>()) {
                const auto argument = it->value<QDBusArgument>();
                types.insert(it.key(), argument.currentSignature());
                values.insert(it.key(), argument.currentSignature() == QStringLiteral("(iiibiiay)")
                                            ? image(argument)
                                            : QJsonValue(argument.currentSignature()));
            } else {
                types.insert(it.key(),
                             QString::fromLatin1(QDBusMetaType::typeToSignature(it->metaType())));
                values.insert(it.key(), plain(*it));
            }
        }
        const QJsonObject line{{QStringLiteral("app"), app},
                               {QStringLiteral("replacesId"), static_cast<double>(replacesId)},
                               {QStringLiteral("appIcon"), appIcon},
                               {QStringLiteral("summary"), summary},
                               {QStringLiteral("body"), body},
                               {QStringLiteral("actions"), QJsonArray::fromStringList(actions)},
                               {QStringLiteral("timeout"), timeout},
                               {QStringLiteral("hints"), values},
                               {QStringLiteral("hintTypes"), types},
                               {QStringLiteral("id"), static_cast<double>(id)}};
        m_log.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
        m_log.flush();
        return id;
    }

    void CloseNotification(uint id) {
        if (m_open.remove(id)) emit NotificationClosed(id, 3);
    }

    QStringList GetCapabilities() { return {QStringLiteral("body")}; }

    QString GetServerInformation(QString& vendor, QString& version, QString& specVersion) {
        vendor = QStringLiteral("Tally tests");
        version = QStringLiteral("1");
        specVersion = QStringLiteral("1.2");
        return QStringLiteral("fake_notification_server");
    }

  signals:
    void NotificationClosed(uint id, uint reason);
    void ActionInvoked(uint id, const QString& action);

  private:
    QFile& m_log;
    uint m_next = 1;
    QSet<uint> m_open;
};

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: fake_notification_server LOG\n");
        return 1;
    }
    QFile log(QString::fromLocal8Bit(argv[1]));
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append)) return 1;
    Server server(log);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server,
                            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals))
        return 1;
    if (!bus.registerService(QStringLiteral("org.freedesktop.Notifications"))) return 1;
    return app.exec();
}

#include "fake_notification_server.moc"
