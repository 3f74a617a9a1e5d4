#include "shell/single_instance.h"

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
    return QStringLiteral("app.tally.Tally-%1").arg(::getuid());
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
