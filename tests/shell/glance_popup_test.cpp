// Where the glance opens: beside the icon when the tray says where it is, otherwise at the
// top right, and never off the screen.
#include "shell/glance_popup.h"

#include <QtTest>

using tally::GlancePopup;

class GlancePopupTest : public QObject {
    Q_OBJECT

  private slots:
    void aTopPanelIconGetsTheGlanceBelowItRightAligned() {
        const QRect screen(0, 24, 1280, 776);
        QCOMPARE(GlancePopup::placement({320, 200}, QRect(1200, 0, 22, 22), screen),
                 QPoint(902, 26));
    }
    void aBottomPanelIconGetsTheGlanceAboveIt() {
        const QRect screen(0, 0, 1280, 776);
        QCOMPARE(GlancePopup::placement({320, 200}, QRect(600, 778, 22, 22), screen),
                 QPoint(302, 574));
    }
    void anIconAtTheLeftEdgeKeepsTheGlanceOnScreen() {
        const QRect screen(0, 24, 1280, 776);
        QCOMPARE(GlancePopup::placement({320, 200}, QRect(4, 0, 22, 22), screen).x(), 0);
    }
    void withoutAnIconTheGlanceGoesTopRight() {
        const QRect screen(0, 24, 1280, 776);
        QCOMPARE(GlancePopup::placement({320, 200}, QRect(), screen), QPoint(952, 32));
    }
};

QTEST_GUILESS_MAIN(GlancePopupTest)
#include "glance_popup_test.moc"
