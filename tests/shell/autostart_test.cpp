#include "shell/autostart.h"

#include "support/shell_fixture.h"

#include <QDir>
#include <QFile>
#include <QtTest>

using tally::Autostart;
using tally::testing::ScratchHome;

class AutostartTest : public QObject {
    Q_OBJECT

  private slots:
    void EnabledEntryStartsTallyHiddenFromTheConfigHome() {
        ScratchHome scratch;
        QVERIFY(Autostart::setEnabled(true));
        QFile entry(scratch.home() + QStringLiteral("/.config/autostart/app.tally.Tally.desktop"));
        QVERIFY(entry.open(QIODevice::ReadOnly));
        QVERIFY(entry.readAll().contains("\nExec=tally --hidden\n"));
        QVERIFY(Autostart::isEnabled());
    }

    void UnsetConfigHomeFallsBackToDotConfig() {
        ScratchHome scratch;
        qunsetenv("XDG_CONFIG_HOME");
        QVERIFY(Autostart::setEnabled(true));
        QVERIFY(QFile::exists(scratch.home() +
                              QStringLiteral("/.config/autostart/app.tally.Tally.desktop")));
    }

    void EntryDeletedByHandReadsAsOff() {
        ScratchHome scratch;
        QVERIFY(Autostart::setEnabled(true));
        QVERIFY(QFile::remove(Autostart::path()));
        QVERIFY(!Autostart::isEnabled());
    }

    void DisablingRemovesTheEntryAndLeavesNoTemporary() {
        ScratchHome scratch;
        QVERIFY(Autostart::setEnabled(true));
        QVERIFY(Autostart::setEnabled(false));
        QVERIFY(!Autostart::isEnabled());
        const QDir autostart(scratch.home() + QStringLiteral("/.config/autostart"));
        QCOMPARE(autostart.entryList(QDir::Files | QDir::Hidden).size(), 0);
    }

    void EntrySwitchedOffByTheDesktopReadsAsOffUntilEnabledAgain() {
        ScratchHome scratch;
        for (const QByteArray& off :
             {QByteArray("Hidden=true"), QByteArray("X-GNOME-Autostart-enabled = false")}) {
            scratch.write(QStringLiteral(".config/autostart/app.tally.Tally.desktop"),
                          "[Desktop Entry]\nType=Application\nExec=tally --hidden\n" + off + "\n");
            QVERIFY2(!Autostart::isEnabled(), off.constData());
            QVERIFY(Autostart::setEnabled(true));
            QVERIFY(Autostart::isEnabled());
        }
    }

    void UnwritableConfigReportsFailureInsteadOfThrowing() {
        ScratchHome scratch;
        scratch.write(QStringLiteral(".config/autostart"), "a file where the directory goes");
        QVERIFY(!Autostart::setEnabled(true));
        QVERIFY(!Autostart::isEnabled());
    }
};

QTEST_GUILESS_MAIN(AutostartTest)
#include "autostart_test.moc"
