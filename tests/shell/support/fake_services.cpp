#include "support/fake_services.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QTest>

namespace tally::testing {

namespace {

bool owned(const QString& name) {
    QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    return bus && bus->isServiceRegistered(name).value();
}

// Polls `done` with the event loop running, so the suite's own bus traffic goes on.
template <typename Done>
bool waitUntil(Done done, int timeoutMs) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QTest::qWait(20);
    }
    return true;
}

}  // namespace

FakeService::FakeService(const QString& program, const QString& busName, const QStringList& extra)
    : m_busName(busName),
      m_logPath(m_dir.filePath(QStringLiteral("calls.jsonl"))),
      m_process(std::make_unique<QProcess>()) {
    m_process->setProcessChannelMode(QProcess::ForwardedChannels);
    m_process->start(program, QStringList{m_logPath} + extra);
    if (!m_process->waitForStarted(10000)) return;
    waitUntil([this] { return m_process->state() != QProcess::Running || owned(m_busName); },
              10000);
}

FakeService::~FakeService() {
    stop();
}

std::unique_ptr<FakeService> FakeService::notificationServer() {
    return std::make_unique<FakeService>(QStringLiteral(TALLY_FAKE_NOTIFICATION_SERVER),
                                         QStringLiteral("org.freedesktop.Notifications"));
}

std::unique_ptr<FakeService> FakeService::trayWatcher() {
    return std::make_unique<FakeService>(QStringLiteral(TALLY_FAKE_TRAY_WATCHER),
                                         QStringLiteral("org.kde.StatusNotifierWatcher"));
}

std::unique_ptr<FakeService> FakeService::portal(uint scheme) {
    return std::make_unique<FakeService>(QStringLiteral(TALLY_FAKE_PORTAL),
                                         QStringLiteral("org.freedesktop.portal.Desktop"),
                                         QStringList{QString::number(scheme)});
}

bool FakeService::running() const {
    return m_process->state() == QProcess::Running && owned(m_busName);
}

QList<QJsonObject> FakeService::log() const {
    QList<QJsonObject> lines;
    QFile file(m_logPath);
    if (!file.open(QIODevice::ReadOnly)) return lines;
    QList<QByteArray> text = file.readAll().split('\n');
    text.removeLast();  // what follows the last newline is a line still being written
    for (const QByteArray& line : text)
        lines.append(QJsonDocument::fromJson(line).object());
    return lines;
}

bool FakeService::waitForLog(int lines, int timeoutMs) const {
    return waitUntil([&] { return log().size() >= lines; }, timeoutMs);
}

QDBusMessage FakeService::call(const QString& path, const QString& interface, const QString& method,
                               const QVariantList& arguments) const {
    QDBusMessage message = QDBusMessage::createMethodCall(m_busName, path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message, QDBus::Block, 5000);
}

void FakeService::setColorScheme(uint scheme) const {
    call(QStringLiteral("/control"), QStringLiteral("app.tally.FakePortal"),
         QStringLiteral("SetColorScheme"), {QVariant::fromValue(scheme)});
}

void FakeService::stop() {
    if (m_process->state() == QProcess::NotRunning) return;
    m_process->terminate();
    if (!m_process->waitForFinished(5000)) {
        m_process->kill();
        m_process->waitForFinished(5000);
    }
    waitUntil([this] { return !owned(m_busName); }, 5000);
}

}  // namespace tally::testing
