#include "shell/desktop_notifier.h"

#include "limits/plan_limits_store.h"
#include "limits/spend_budget.h"
#include "support/fake_services.h"
#include "support/shell_fixture.h"

#include <QDBusConnection>
#include <QtTest>

#include <thread>

using namespace tally;
using namespace tally::testing;
using namespace usagekit;

namespace {

const Date kNow{1'760'000'000};

Notification codexWeekly(double used) {
    const PlanLimits::Window window{"secondary", "Weekly · Sonnet", used, std::nullopt};
    const PlanLimits plan{"codex", "ChatGPT · Codex", std::nullopt, {window}, kNow, std::nullopt};
    return LimitNotifier::notification(plan, window, kNow);
}

}  // namespace

class DesktopNotifierTest : public QObject {
    Q_OBJECT
  public slots:
    void closed(uint, uint) { ++m_closed; }

  private slots:
    void init() { m_home = std::make_unique<ScratchHome>(); }
    void cleanup() { m_home.reset(); }

    void budgetCrossingArrivesOnceWithItsExactTexts() {
        const auto server = FakeService::notificationServer();
        QVERIFY(server->running());
        DesktopNotifier notifier;
        const SpendBudget budget{"b1", "Claude", "claude", SpendBudget::Period::day, 20};
        Announced announced;
        BudgetNotifier::announce({BudgetCrossing{{budget, 16.4}, 80, "b1|1760000000|80"}},
                                 announced, notifier);

        QVERIFY(server->waitForLog(1));
        QTest::qWait(200);  // a duplicate would arrive within this
        const QList<QJsonObject> log = server->log();
        QCOMPARE(log.size(), 1);
        QCOMPARE(log[0]["app"].toString(), QStringLiteral("Tally"));
        QCOMPARE(log[0]["summary"].toString(), QStringLiteral("Claude is at 80%"));
        QCOMPARE(log[0]["body"].toString(), QStringLiteral("$16.40 of $20.00 this day."));
        QCOMPARE(log[0]["appIcon"].toString(), QStringLiteral("app.tally.Tally"));
        QCOMPARE(log[0]["hintTypes"]["urgency"].toString(), QStringLiteral("y"));
        QCOMPARE(log[0]["hints"]["image-data"]["width"].toInt(), 64);
    }

    void secondWarningBeforeTheFirstIdCameBackStillReplacesIt() {
        const auto server = FakeService::notificationServer();
        DesktopNotifier notifier;
        notifier.post(codexWeekly(91.5));
        notifier.post(codexWeekly(96));

        QVERIFY(server->waitForLog(2));
        const QList<QJsonObject> log = server->log();
        QCOMPARE(log[0]["replacesId"].toInt(), 0);
        QCOMPARE(log[1]["replacesId"].toInt(), log[0]["id"].toInt());
        QCOMPARE(log[1]["summary"].toString(),
                 QStringLiteral("ChatGPT · Codex: weekly · sonnet window at 96%"));
    }

    void closedNotificationIsPostedAnew() {
        const auto server = FakeService::notificationServer();
        DesktopNotifier notifier;
        QDBusConnection::sessionBus().connect(
            server->busName(), QStringLiteral("/org/freedesktop/Notifications"), server->busName(),
            QStringLiteral("NotificationClosed"), this, SLOT(closed(uint, uint)));
        notifier.post(codexWeekly(91.5));
        QVERIFY(server->waitForLog(1));
        server->call(QStringLiteral("/org/freedesktop/Notifications"), server->busName(),
                     QStringLiteral("CloseNotification"),
                     {QVariant::fromValue(uint(server->log()[0]["id"].toInt()))});
        QTRY_COMPARE(m_closed, 1);

        notifier.post(codexWeekly(96));
        QVERIFY(server->waitForLog(2));
        QCOMPARE(server->log()[1]["replacesId"].toInt(), 0);
    }

    void postsFromAWorkerThreadArriveAndReplace() {
        const auto server = FakeService::notificationServer();
        DesktopNotifier notifier;
        notifier.post({"tally.budget.b1", "Claude is at 80%", "$16.40 of $20.00 this day."});
        QVERIFY(server->waitForLog(1));  // the service is known: posts now go straight out
        std::thread worker([&] {
            notifier.post(codexWeekly(91.5));
            notifier.post(codexWeekly(96));
        });
        worker.join();

        QVERIFY(server->waitForLog(3));
        const QList<QJsonObject> log = server->log();
        QCOMPARE(log[2]["replacesId"].toInt(), log[1]["id"].toInt());
    }

    void postWithoutServiceIsDroppedNotDeliveredLater() {
        DesktopNotifier notifier;
        QTRY_VERIFY(!notifier.isAuthorized());
        notifier.post(codexWeekly(91.5));

        const auto server = FakeService::notificationServer();
        QTRY_VERIFY(notifier.isAuthorized());
        notifier.post(codexWeekly(96));
        QVERIFY(server->waitForLog(1));
        QTest::qWait(200);
        QCOMPARE(server->log().size(), 1);
        QCOMPARE(server->log()[0]["replacesId"].toInt(), 0);
        QVERIFY(server->log()[0]["summary"].toString().endsWith(QStringLiteral("96%")));
    }

  private:
    std::unique_ptr<ScratchHome> m_home;
    int m_closed = 0;
};

QTEST_MAIN(DesktopNotifierTest)
#include "desktop_notifier_test.moc"
