#include "shell/theme.h"

#include "support/fake_services.h"

#include <QApplication>
#include <QtTest>

using namespace tally;
using namespace tally::testing;

namespace {

QColor rgb(float r, float g, float b, float a = 1) {
    return QColor::fromRgbF(r, g, b, a);
}

}  // namespace

class ThemeTest : public QObject {
    Q_OBJECT
  private slots:
    void init() {
        Theme::apply(Theme::Scheme::light);
        m_forced = qgetenv("TALLY_COLOR_SCHEME");
        qunsetenv("TALLY_COLOR_SCHEME");
    }
    void cleanup() { qputenv("TALLY_COLOR_SCHEME", m_forced); }

    void paletteHoldsTheDesignedLightAndDarkValues() {
        const QColor white = rgb(1, 1, 1);
        QCOMPARE(Theme::accent(), rgb(0.96f, 0.51f, 0.04f));
        QCOMPARE(Theme::paper(), white);
        QCOMPARE(Theme::surface(), white);
        QCOMPARE(Theme::border(), rgb(0, 0, 0, 0.09f));
        QCOMPARE(Theme::borderStrong(), rgb(0, 0, 0, 0.17f));
        QCOMPARE(Theme::fillMuted(), rgb(0, 0, 0, 0.045f));
        QCOMPARE(Theme::fillSelected(), rgb(0, 0, 0, 0.08f));
        QCOMPARE(Theme::shadow(), rgb(0, 0, 0, 0.05f));

        Theme::apply(Theme::Scheme::dark);
        QCOMPARE(Theme::accent(), rgb(1.0f, 0.6f, 0.18f));
        QCOMPARE(Theme::paper(), rgb(0.11f, 0.11f, 0.118f));
        QCOMPARE(Theme::surface(), rgb(0.149f, 0.149f, 0.157f));
        QCOMPARE(Theme::border(), rgb(1, 1, 1, 0.11f));
        QCOMPARE(Theme::borderStrong(), rgb(1, 1, 1, 0.21f));
        QCOMPARE(Theme::fillMuted(), rgb(1, 1, 1, 0.06f));
        QCOMPARE(Theme::fillSelected(), rgb(1, 1, 1, 0.11f));
        QCOMPARE(Theme::shadow(), rgb(0, 0, 0, 0.3f));
    }

    // The portal wraps its answer twice (an unwrap that stops early reads nothing), and a
    // switch on the desktop arrives only as a signal. One portal for both: QtDBus can miss
    // the first signals of a name's new owner right after a previous owner left.
    void portalSchemeIsReadAtStartAndFollowedLive() {
        const auto portal = FakeService::portal(1);
        QVERIFY(portal->running());
        ThemeWatcher watcher;
        QTRY_COMPARE(Theme::scheme(), Theme::Scheme::dark);
        QSignalSpy changed(&watcher, &ThemeWatcher::schemeChanged);

        portal->setColorScheme(2);
        QTRY_COMPARE(Theme::scheme(), Theme::Scheme::light);
        QCOMPARE(changed.size(), 1);
        QVERIFY(QApplication::palette().color(QPalette::Window).lightnessF() > 0.5);
    }

  private:
    QByteArray m_forced;
};

QTEST_MAIN(ThemeTest)
#include "theme_test.moc"
