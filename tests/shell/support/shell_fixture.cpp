#include "support/shell_fixture.h"

#include "core/paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace tally::testing {

ScratchHome::ScratchHome() : m_oldHome(qgetenv("HOME")) {
    QDir(m_dir.path()).mkpath(QStringLiteral("home"));
    QDir(m_dir.path()).mkpath(QStringLiteral("support"));
    qputenv("HOME", home().toUtf8());
    qputenv("XDG_CONFIG_HOME", (home() + QStringLiteral("/.config")).toUtf8());
    qputenv("XDG_DATA_HOME", (home() + QStringLiteral("/.local/share")).toUtf8());
    qputenv("TALLY_SUPPORT_DIR", support().toUtf8());
    usagekit::TallyPaths::setSupport(support().toStdString());
}

ScratchHome::~ScratchHome() {
    qputenv("HOME", m_oldHome);
}

QString ScratchHome::home() const {
    return m_dir.path() + QStringLiteral("/home");
}

QString ScratchHome::support() const {
    return m_dir.path() + QStringLiteral("/support");
}

void ScratchHome::copyFixture(const QString& fixture, const QString& target) const {
    const QString to = home() + QLatin1Char('/') + target;
    QDir().mkpath(QFileInfo(to).path());
    QFile::copy(QStringLiteral(TALLY_TEST_DATA) + QLatin1Char('/') + fixture, to);
}

void ScratchHome::write(const QString& target, const QByteArray& text) const {
    const QString to = home() + QLatin1Char('/') + target;
    QDir().mkpath(QFileInfo(to).path());
    QFile file(to);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.write(text);
}

QString saveShot(QWidget& widget, const QString& name) {
    const QString path =
        QStringLiteral(TALLY_SHOTS) + QLatin1Char('/') + name + QStringLiteral(".png");
    widget.grab().toImage().save(path);
    return path;
}

}  // namespace tally::testing
