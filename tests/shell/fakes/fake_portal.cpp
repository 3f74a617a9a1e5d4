// The desktop portal's appearance setting for the desktop-app suites: owns
// org.freedesktop.portal.Desktop on the session bus and serves
// org.freedesktop.portal.Settings at /org/freedesktop/portal/desktop. Read("org.freedesktop.
// appearance", "color-scheme") answers v(v(u)) as real portals do; SetColorScheme(u) on
// app.tally.FakePortal at /control changes the value and emits SettingChanged(ssv) like a
// desktop switching live. The first argument names a log file (one JSON line per Read); the
// optional second is the scheme at start (0 no preference, 1 dark, 2 light; default 0).
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>

#include <cstdio>

namespace {

const QString kAppearance = QStringLiteral("org.freedesktop.appearance");
const QString kColorScheme = QStringLiteral("color-scheme");

class Settings : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
  public:
    Settings(QFile& log, uint scheme) : m_log(log), m_scheme(scheme) {}

    void setScheme(uint scheme) {
        m_scheme = scheme;
        emit SettingChanged(kAppearance, kColorScheme, QDBusVariant(QVariant::fromValue(scheme)));
    }

  public slots:
    QDBusVariant Read(const QString& group, const QString& key) {
        const QJsonObject line{{QStringLiteral("group"), group}, {QStringLiteral("key"), key}};
        m_log.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
        m_log.flush();
        if (group != kAppearance || key != kColorScheme) {
            sendErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotFound"),
                           QStringLiteral("Requested setting not found"));
            return {};
        }
        return QDBusVariant(QVariant::fromValue(QDBusVariant(QVariant::fromValue(m_scheme))));
    }

  signals:
    void SettingChanged(const QString& group, const QString& key, const QDBusVariant& value);

  private:
    QFile& m_log;
    uint m_scheme;
};

class Control : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.tally.FakePortal")
  public:
    explicit Control(Settings& settings) : m_settings(settings) {}

  public slots:
    void SetColorScheme(uint scheme) { m_settings.setScheme(scheme); }

  private:
    Settings& m_settings;
};

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: fake_portal LOG [SCHEME]\n");
        return 1;
    }
    QFile log(QString::fromLocal8Bit(argv[1]));
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append)) return 1;
    qRegisterMetaType<QDBusVariant>();  // so SettingChanged shows in the introspection
    const uint scheme = argc > 2 ? QByteArray(argv[2]).toUInt() : 0;
    Settings settings(log, scheme);
    Control control(settings);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &settings,
                            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals) ||
        !bus.registerObject(QStringLiteral("/control"), &control, QDBusConnection::ExportAllSlots))
        return 1;
    if (!bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop"))) return 1;
    return app.exec();
}

#include "fake_portal.moc"
