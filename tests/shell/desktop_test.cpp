// The desktop app used as a person uses it: a tray host and a notification service on a
// private bus, the icon clicked over D-Bus as a tray host clicks it, the glance read off
// the screen and compared with what `tally --scan` prints for the same home, the keyboard
// driving its buttons, and screenshots saved for a person to look at.
#include "shell/dashboard_window.h"
#include "shell/desktop_app.h"
#include "shell/glance_panel.h"
#include "shell/glance_popup.h"
#include "shell/single_instance.h"
#include "shell/theme.h"
#include "shell/tray_controller.h"

#include "support/fake_services.h"
#include "support/shell_fixture.h"

#include "core/date.h"
#include "ledger/fmt.h"

#include <QDBusConnection>
#include <QDBusPendingCall>
#include <QLocalSocket>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

using namespace tally;
using namespace tally::testing;
using namespace usagekit;

namespace {

// One Claude Code request made a minute ago, so that today and this month hold money.
QByteArray claudeLineFromAMinuteAgo() {
    const std::string when = ISO8601::format(Date::now().addingSeconds(-60));
    return QByteArray::fromStdString(
        R"({"parentUuid":"c1f0","isSidechain":false,"userType":"external","cwd":"/home/ana/src/app","sessionId":"5e0c1a","version":"2.1.90","gitBranch":"main","message":{"model":"claude-sonnet-4-6","id":"msg_01Xy","type":"message","role":"assistant","content":[{"type":"text","text":"Done."}],"stop_reason":null,"stop_sequence":null,"usage":{"input_tokens":3,"cache_creation_input_tokens":90000,"cache_read_input_tokens":410000,"output_tokens":12000,"service_tier":"standard"}},"requestId":"req_011Cab","type":"assistant","uuid":"7d","timestamp":")" +
        when + "\"}\n");
}

QString plain(QString money) {
    return money.remove(QLatin1Char(','));
}

// What `tally --scan` prints first: "today $X · month $Y · ...".
std::pair<QString, QString> scanFigures() {
    QProcess tally;
    tally.start(QStringLiteral(TALLY_BINARY), {QStringLiteral("--scan")});
    tally.waitForFinished(60'000);
    const QString first =
        QString::fromUtf8(tally.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0);
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral(R"(^today (\$[0-9.]+) · month (\$[0-9.]+))"))
            .match(first);
    return {match.captured(1), match.captured(2)};
}

}  // namespace

class DesktopTest : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        m_home = std::make_unique<ScratchHome>();
        m_watcher = FakeService::trayWatcher();
        m_notifications = FakeService::notificationServer();
        QVERIFY(m_watcher->running() && m_notifications->running());
    }
    void cleanup() {
        m_app.reset();
        m_notifications.reset();
        m_watcher.reset();
        m_home.reset();
        Theme::apply(Theme::Scheme::light);
    }

    void clickingTheTrayIconOpensTheGlanceWithTheFiguresOfTallyScan() {
        m_home->write(QStringLiteral(".claude/projects/-home-ana-src-app/5e0c1a.jsonl"),
                      claudeLineFromAMinuteAgo());
        startApp();
        QVERIFY(m_app->tray());
        QVERIFY(m_watcher->waitForLog(1));
        QTRY_VERIFY(!m_app->model().ledger()->records.empty());

        activateTrayItem();
        QTRY_VERIFY(m_app->popup()->isVisible());
        const auto [today, month] = scanFigures();
        QVERIFY(today != QStringLiteral("$0.00"));
        QCOMPARE(plain(m_app->glance().todayText()), today);
        QCOMPARE(plain(m_app->glance().monthText()), month);
        QCOMPARE(m_app->tray()->icon().toolTip(),
                 QString::fromStdString(m_app->model().menuTitle()));
    }

    void rescanAndQuitWorkFromTheKeyboard() {
        startApp();
        QVERIFY(m_watcher->waitForLog(1));
        // The first scan starts from the event loop: wait for its end, not merely for a
        // moment before it began, or the rescan below would find it still running.
        QTRY_VERIFY(m_app->model().ledger()->lastScan.has_value());
        QTRY_VERIFY(!m_app->model().scanning());
        activateTrayItem();
        QTRY_VERIFY(m_app->popup()->isVisible());
        GlancePanel& glance = m_app->glance();
        QTRY_VERIFY(glance.openButton()->hasFocus());

        QSignalSpy scanning(&m_app->model(), &AppModel::scanningChanged);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY(glance.rescanButton()->hasFocus());
        QTest::keyClick(glance.rescanButton(), Qt::Key_Space);
        QVERIFY(scanning.count() >= 1);

        QSignalSpy quit(m_app.get(), &DesktopApp::quitRequested);
        QTest::keyClick(glance.rescanButton(), Qt::Key_Tab);
        QVERIFY(glance.quitButton()->hasFocus());
        QTest::keyClick(glance.quitButton(), Qt::Key_Space);
        QCOMPARE(quit.count(), 1);
    }

    void escapeClosesTheGlance() {
        startApp();
        QVERIFY(m_watcher->waitForLog(1));
        activateTrayItem();
        QTRY_VERIFY(m_app->popup()->isVisible());
        QTest::keyClick(m_app->popup(), Qt::Key_Escape);
        QVERIFY(!m_app->popup()->isVisible());
    }

    void aBudgetCrossingPostsOneNotificationAndARescanNoMore() {
        m_home->write(QStringLiteral(".claude/projects/-home-ana-src-app/5e0c1a.jsonl"),
                      claudeLineFromAMinuteAgo());
        startApp();
        AppModel& model = m_app->model();
        QSignalSpy firstScan(&model, &AppModel::ledgerChanged);
        QTRY_COMPARE(firstScan.count(), 2);  // the local figures, then the accounts
        const double today = model.totals(SpendBudget::Period::day).allUSD();
        SpendBudget budget = SpendBudget::newBudget(SpendBudget::Period::day);
        budget.capUSD = std::round(today / 0.9 * 100) / 100;  // about 90% spent
        model.setBudgets({budget});
        model.noteBudgets();
        QVERIFY(m_notifications->waitForLog(1));
        const QJsonObject posted = m_notifications->log().at(0);
        QCOMPARE(posted[QStringLiteral("app")].toString(), QStringLiteral("Tally"));
        QCOMPARE(posted[QStringLiteral("summary")].toString(), QStringLiteral("Today is at 80%"));
        QCOMPARE(posted[QStringLiteral("body")].toString(),
                 QString::fromStdString(Fmt::cents(today) + " of " + Fmt::cents(budget.capUSD) +
                                        " this day."));

        QSignalSpy published(&model, &AppModel::ledgerChanged);
        model.scan();
        QTRY_COMPARE(published.count(), 2);
        QTest::qWait(200);
        QCOMPARE(m_notifications->log().size(), 1);
    }

    void aSecondTallyShowsTheFirstAndExits() {
        QProcess first;
        first.start(QStringLiteral(TALLY_BINARY), {QStringLiteral("--hidden")});
        QVERIFY(first.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(listening(), 20'000);
        QProcess second;
        second.start(QStringLiteral(TALLY_BINARY));
        QVERIFY(second.waitForFinished(10'000));
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(first.state(), QProcess::Running);
        first.terminate();
        first.waitForFinished(5000);
    }

    void screenshotsOfTheGlanceAndTheWindow() {
        for (const bool demo : {false, true}) {
            if (demo) makeDemoHome();
            startApp();
            QTRY_VERIFY_WITH_TIMEOUT(m_app->model().ledger()->lastScan.has_value(), 30'000);
            QTRY_VERIFY(!m_app->model().scanning());
            activateTrayItem();
            QTRY_VERIFY(m_app->popup()->isVisible());
            for (const Theme::Scheme scheme : {Theme::Scheme::light, Theme::Scheme::dark}) {
                Theme::apply(scheme);
                QApplication::processEvents();
                const QString suffix = QStringLiteral("%1-%2").arg(
                    scheme == Theme::Scheme::dark ? QStringLiteral("dark")
                                                  : QStringLiteral("light"),
                    demo ? QStringLiteral("demo") : QStringLiteral("empty"));
                QVERIFY(
                    QFile::exists(saveShot(*m_app->popup(), QStringLiteral("glance-") + suffix)));
                m_app->dashboard().present();
                QApplication::processEvents();
                QVERIFY(QFile::exists(
                    saveShot(m_app->dashboard(), QStringLiteral("dashboard-") + suffix)));
            }
            m_app.reset();
        }
    }

  private:
    void startApp() {
        m_app = std::make_unique<DesktopApp>();
        m_app->start(true);
    }
    void activateTrayItem() {
        const QJsonObject item = m_watcher->log().constLast();
        QDBusMessage activate = QDBusMessage::createMethodCall(
            item[QStringLiteral("name")].toString(), item[QStringLiteral("path")].toString(),
            QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("Activate"));
        activate << 0 << 0;
        // Asynchronous: the item is served by this very process.
        QDBusConnection::sessionBus().asyncCall(activate);
    }
    bool listening() {
        QLocalSocket socket;
        socket.connectToServer(SingleInstance::socketName());
        return socket.waitForConnected(200);
    }
    void makeDemoHome() {
        QProcess corpus;
        const QString out = m_home->path() + QStringLiteral("/demo");
        corpus.start(QStringLiteral(TALLY_MAKE_CORPUS),
                     {QStringLiteral("--out"), out, QStringLiteral("--megabytes"),
                      QStringLiteral("4"), QStringLiteral("--files"), QStringLiteral("40"),
                      QStringLiteral("--seed"), QStringLiteral("7")});
        QVERIFY(corpus.waitForFinished(120'000));
        qputenv("HOME", (out + QStringLiteral("/home")).toUtf8());
    }

    std::unique_ptr<ScratchHome> m_home;
    std::unique_ptr<FakeService> m_watcher;
    std::unique_ptr<FakeService> m_notifications;
    std::unique_ptr<DesktopApp> m_app;
};

QTEST_MAIN(DesktopTest)
#include "desktop_test.moc"
