// The app model as the views meet it: what it publishes, in which order, and what its
// clock and budgets make of the records. Services are fakes that the test holds back or
// lets go, so the order of events is the test's, not the scheduler's.
#include "shell/app_model.h"

#include "support/recording_notifier.h"
#include "support/shell_fixture.h"

#include "core/date.h"

#include <QSignalSpy>
#include <QTest>

#include <atomic>
#include <semaphore>

using namespace usagekit;
using tally::AppModel;

namespace {

// 2026-03-14 12:00:00 UTC; the suite runs with TZ=UTC.
const Date kNoon{1773489600};

UsageRecord record(const Provider& provider, double cost, Date date = kNoon) {
    UsageRecord r;
    r.id = provider.id + std::to_string(cost);
    r.date = date;
    r.provider = provider;
    r.model = "claude-sonnet-4-6";
    r.kind = "session";
    r.calls = 1;
    r.input = 100;
    r.reportedCostUSD = cost;
    return r;
}

// Services whose calls are counted and may be held until the test lets them finish.
struct FakeServices {
    std::vector<UsageRecord> local;
    std::vector<UsageRecord> remote;
    std::atomic<int> scans{0}, remoteRefreshes{0}, limitRefreshes{0};
    std::counting_semaphore<8> localGate{8}, remoteGate{8};
    Date now = kNoon;

    AppModel::Services services(std::chrono::milliseconds scanPeriod = std::chrono::hours(1)) {
        AppModel::Services s;
        s.scanLocal = [this](UsageLedger& ledger) {
            ++scans;
            localGate.acquire();
            ledger.records = local;
        };
        s.refreshRemote = [this](UsageLedger& ledger) {
            ++remoteRefreshes;
            remoteGate.acquire();
            ledger.records.insert(ledger.records.end(), remote.begin(), remote.end());
        };
        s.refreshLimits = [this](Date, Notifier*) {
            ++limitRefreshes;
            return PlanLimitsStore::Snapshot();
        };
        s.now = [this] { return now; };
        s.scanPeriod = scanPeriod;
        s.clockPeriod = std::chrono::hours(1);
        return s;
    }
    // Takes every permit, so the next call waits until release().
    void hold(std::counting_semaphore<8>& gate) {
        for (int i = 0; i < 8; ++i)
            gate.acquire();
    }
    void release(std::counting_semaphore<8>& gate) { gate.release(8); }
};

}  // namespace

class AppModelTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() {
        qputenv("TZ", "UTC");
        Calendar::timeZoneChanged();
    }
    void init() { m_home = std::make_unique<tally::testing::ScratchHome>(); }
    void cleanup() { m_home.reset(); }

    void localFiguresArePublishedBeforeTheRemoteOnesAndScanningClearsBetween() {
        FakeServices fake;
        fake.local = {record(Provider::claudeCode, 2)};
        fake.remote = {record(Provider::anthropic, 3)};
        fake.hold(fake.remoteGate);
        AppModel model(nullptr, fake.services());
        QSignalSpy published(&model, &AppModel::ledgerChanged);

        model.scan();
        QVERIFY(model.scanning());
        QTRY_COMPARE(published.count(), 1);
        QCOMPARE(model.ledger()->records.size(), size_t(1));
        QVERIFY(!model.scanning());

        fake.release(fake.remoteGate);
        QTRY_COMPARE(published.count(), 2);
        QCOMPARE(model.ledger()->records.size(), size_t(2));
    }

    void aScanWhileScanningIsIgnored() {
        FakeServices fake;
        fake.hold(fake.localGate);
        AppModel model(nullptr, fake.services());
        model.scan();
        QTRY_COMPARE(fake.scans.load(), 1);
        model.scan();
        model.refreshRemoteUsage();
        fake.release(fake.localGate);
        QTRY_VERIFY(!model.scanning());
        QCOMPARE(fake.scans.load(), 1);
    }

    void aPeriodicPassDuringAScanStillRefreshesLimits() {
        FakeServices fake;
        fake.hold(fake.localGate);
        AppModel model(nullptr, fake.services(std::chrono::milliseconds(20)));
        model.start();
        QTRY_VERIFY(fake.limitRefreshes.load() >= 2);
        QCOMPARE(fake.scans.load(), 1);
        fake.release(fake.localGate);
    }

    void startingTwiceStartsOneScanAndOneSetOfTimers() {
        FakeServices fake;
        AppModel model(nullptr, fake.services());
        model.start();
        model.start();
        QTRY_VERIFY(!model.scanning());
        QCOMPARE(fake.scans.load(), 1);
        QCOMPARE(fake.limitRefreshes.load(), 1);
        int active = 0;
        for (QTimer* timer : model.findChildren<QTimer*>())
            active += timer->isActive();
        QCOMPARE(active, 2);
    }

    void todayRollsOverAtMidnightOnlyOnTheClockTick() {
        FakeServices fake;
        const Date lateEvening{kNoon.secondsSince1970 + 11 * 3600 + 3590};  // 23:59:50
        fake.now = lateEvening;
        fake.local = {record(Provider::claudeCode, 5, lateEvening.addingSeconds(-60))};
        AppModel model(nullptr, fake.services());
        model.scan();
        QTRY_VERIFY(!model.ledger()->records.empty());
        QCOMPARE(model.menuTitle(), std::string("$5.00 \u00B7 $5.00"));

        fake.now = lateEvening.addingSeconds(20);  // 00:00:10 the next day
        QCOMPARE(model.totals(SpendBudget::Period::day).allUSD(), 5.0);
        model.tick();
        QCOMPARE(model.menuTitle(), std::string("$0.00 \u00B7 $5.00"));
    }

    void heatTurnsWarmAtExactlyEightyPercentAndHotAtExactlyTheCap() {
        FakeServices fake;
        AppModel model(nullptr, fake.services());
        SpendBudget day = SpendBudget::newBudget(SpendBudget::Period::day);  // $20
        SpendBudget none = SpendBudget::newBudget(SpendBudget::Period::month);
        none.capUSD = 0;
        model.setBudgets({day, none});
        for (auto [spent, heat] : {std::pair{15.99, AppModel::Heat::cool},
                                   {16.0, AppModel::Heat::warm},
                                   {20.0, AppModel::Heat::hot}}) {
            fake.local = {record(Provider::claudeCode, spent)};
            QSignalSpy published(&model, &AppModel::ledgerChanged);
            model.scan();
            QTRY_COMPARE(published.count(), 2);
            QCOMPARE(model.heat(), heat);
        }
    }

    void seatComparisonsSkipAZeroSeatAndMeteredProviders() {
        FakeServices fake;
        fake.local = {record(Provider::claudeCode, 10), record(Provider::codexCLI, 5),
                      record(Provider::anthropic, 7)};
        AppModel model(nullptr, fake.services());
        TallySettings settings = model.settings();
        settings.seatPrices["codex-cli"] = 0;
        settings.seatPrices["anthropic-api"] = 50;
        model.setSettings(settings);
        model.scan();
        QTRY_VERIFY(!model.ledger()->records.empty());
        const std::vector<AppModel::SeatComparison> expected{{Provider::claudeCode, 10, 200}};
        QVERIFY(model.seatComparisons() == expected);
    }

    void aBudgetCrossedByAScanIsAnnouncedOnceAcrossPublications() {
        FakeServices fake;
        fake.local = {record(Provider::claudeCode, 17)};
        testing::RecordingNotifier notifier;
        AppModel model(&notifier, fake.services());
        model.setBudgets({SpendBudget::newBudget(SpendBudget::Period::day)});
        QSignalSpy published(&model, &AppModel::ledgerChanged);
        model.scan();
        QTRY_COMPARE(published.count(), 2);
        QCOMPARE(notifier.posted.size(), size_t(1));
        QCOMPARE(notifier.posted[0].title, std::string("Today is at 80%"));
        QCOMPARE(notifier.posted[0].body, std::string("$17.00 of $20.00 this day."));
    }

  private:
    std::unique_ptr<tally::testing::ScratchHome> m_home;
};

QTEST_GUILESS_MAIN(AppModelTest)
#include "app_model_test.moc"
