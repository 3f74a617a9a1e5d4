#include "shell/single_instance.h"

#include "core/paths.h"

#include <QHash>
#include <QLocalSocket>

#include <unistd.h>

namespace tally {

namespace {
const QByteArray kShow = QByteArrayLiteral("show\n");
constexpr int kAnswerMilliseconds = 1000;
}  // namespace

SingleInstance::SingleInstance(QObject* parent) : QObject(parent) {
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (socket->readAll().contains(kShow.trimmed())) emit showRequested();
                socket->disconnectFromServer();
            });
        }
    });
}

QString SingleInstance::socketName() {
    QString name = QStringLiteral("app.tally.Tally-%1").arg(::getuid());
    // A scratch support directory (a test, a throw-away run) is an instance of its own,
    // never the user's running app.
    if (usagekit::TallyPaths::isScratchState())
        name += QLatin1Char('-') +
                QString::number(
                    qHash(QString::fromStdString(usagekit::TallyPaths::support().string())), 16);
    return name;
}

bool SingleInstance::askRunningToShow() {
    QLocalSocket socket;
    socket.connectToServer(socketName());
    if (socket.waitForConnected(kAnswerMilliseconds)) {
        socket.write(kShow);
        socket.waitForBytesWritten(kAnswerMilliseconds);
        socket.disconnectFromServer();
        return true;
    }
    // Nobody answers: whatever is left of an instance that was killed goes.
    QLocalServer::removeServer(socketName());
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    m_server.listen(socketName());
    return false;
}

}  // namespace tally
