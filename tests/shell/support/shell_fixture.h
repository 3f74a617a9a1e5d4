// What every desktop-app suite needs: a throw-away HOME and support directory per test
// (so no suite ever reads the developer's logs or state), fixture logs copied in, and
// screenshots saved where the README says.
#pragma once

#include <QString>
#include <QTemporaryDir>
#include <QWidget>

#include <memory>

namespace tally::testing {

class ScratchHome {
  public:
    // Points HOME, XDG_* and TALLY_SUPPORT_DIR at a new temporary directory.
    ScratchHome();
    ~ScratchHome();
    QString path() const { return m_dir.path(); }
    QString home() const;
    QString support() const;
    // Copies tests/data/<fixture> to <home>/<target> (directories are created).
    void copyFixture(const QString& fixture, const QString& target) const;
    // Writes `text` to <home>/<target>.
    void write(const QString& target, const QByteArray& text) const;

  private:
    QTemporaryDir m_dir;
    QByteArray m_oldHome;
};

// Saves the widget as <shots>/<name>.png and returns the path.
QString saveShot(QWidget& widget, const QString& name);

}  // namespace tally::testing
