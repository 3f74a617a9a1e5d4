// The desktop app where no tray exists (a bare X server, GNOME without the AppIndicator
// extension): the window is the whole app, with the glance at its top, and closing it
// (Ctrl+W too) ends the app. No tray host runs on this suite's bus.
#include "shell/dashboard_window.h"
#include "shell/desktop_app.h"
#include "shell/glance_panel.h"

#include "support/shell_fixture.h"

#include <QtTest>

using namespace tally;

class DesktopWithoutTrayTest : public QObject {
    Q_OBJECT

  private slots:
    void theWindowOpensWithTheGlanceAtItsTopAndClosingItQuits() {
        testing::ScratchHome home;
        DesktopApp app;
        QVERIFY(!app.tray());
        app.start(true);  // a start at login still needs a window without a tray
        QTRY_VERIFY(app.dashboard().isVisible());
        QVERIFY(app.glance().isVisibleTo(&app.dashboard()));

        // Qt ends the event loop when the last window closes while this is set.
        QVERIFY(QApplication::quitOnLastWindowClosed());
        QVERIFY(QTest::qWaitForWindowActive(&app.dashboard()));
        QTest::keyClick(&app.dashboard(), Qt::Key_W, Qt::ControlModifier);
        QVERIFY(!app.dashboard().isVisible());
        QTRY_VERIFY(!app.model().scanning());
    }
};

QTEST_MAIN(DesktopWithoutTrayTest)
#include "desktop_without_tray_test.moc"
