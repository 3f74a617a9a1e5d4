// The one object behind every view of the desktop app: the published ledger, the
// settings, the budgets and the plan-limit snapshot, the scans and timers that refresh
// them, and the figures derived from them (today's and this month's totals, the tray
// title, budget pressure, seat comparisons).
//
// Confined to the GUI thread: every method is called there and every signal is emitted
// there. Scans, HTTP and Secret Service calls run on the model's worker threads; their
// results come back as whole values (a fresh ledger copy, a snapshot) through queued calls
// and replace the published ones, so a view never sees a value change under it. The
// destructor waits for work in flight. Collaborators (scanner, remote refresh, plan-limit
// refresh, clock source, timer periods) are injectable so tests can move time and stand in
// for the network.
#pragma once

#include "core/date.h"
#include "core/provider.h"
#include "core/settings.h"
#include "ledger/usage_ledger.h"
#include "limits/notifier.h"
#include "limits/plan_limits_store.h"
#include "limits/spend_budget.h"

#include <QObject>
#include <QThreadPool>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace tally {

class AppModel : public QObject {
    Q_OBJECT

  public:
    // What the model calls to get work done. Each function runs on a worker thread; the
    // defaults are the real ones.
    struct Services {
        std::function<void(usagekit::UsageLedger&)> scanLocal;
        std::function<void(usagekit::UsageLedger&)> refreshRemote;
        std::function<usagekit::PlanLimitsStore::Snapshot(usagekit::Date, usagekit::Notifier*)>
            refreshLimits;
        std::function<usagekit::Date()> now;  // read on the GUI thread
        std::chrono::milliseconds scanPeriod{300'000};
        std::chrono::milliseconds clockPeriod{30'000};

        static Services live();
    };

    enum class Heat { cool, warm, hot };

    struct SeatComparison {
        usagekit::Provider provider;
        double equivalent = 0;  // the month's seat use at API rates, US dollars
        double seat = 0;        // the seat's price per month
        bool operator==(const SeatComparison&) const = default;
    };

    // Loads settings, budgets, announced keys and the saved plan-limit snapshot; scans
    // nothing and starts no timer. `notifier` must outlive the model (it may be null: then
    // nothing is posted).
    explicit AppModel(usagekit::Notifier* notifier, Services services = Services::live(),
                      QObject* parent = nullptr);
    ~AppModel() override;

    // Published state. The ledger pointer stays valid as long as the caller keeps it;
    // each publication replaces it with a new one.
    std::shared_ptr<const usagekit::UsageLedger> ledger() const { return m_ledger; }
    const usagekit::TallySettings& settings() const { return m_settings; }
    const std::vector<usagekit::SpendBudget>& budgets() const { return m_budgets; }
    bool scanning() const { return m_scanning; }
    const usagekit::PlanLimitsStore::Snapshot& limits() const { return m_limits; }
    bool refreshingLimits() const { return m_refreshingLimits; }
    usagekit::Date clock() const { return m_clock; }

    // Publish a new value (an equal one is not re-published). Saving is the caller's job.
    void setSettings(const usagekit::TallySettings& settings);
    void setBudgets(const std::vector<usagekit::SpendBudget>& budgets);

    // Runs the first scan and limits refresh and starts the two loops; a second call does
    // nothing.
    void start();
    // Local logs, published as soon as they are read, then the provider accounts. Ignored
    // while a scan runs.
    void scan();
    // The provider accounts only, on a copy of the published ledger. Ignored while a scan
    // runs.
    void refreshRemoteUsage();
    // Ignored while a limits refresh runs.
    void refreshLimits();
    // Posts the budget crossings not yet announced (when the user wants them).
    void noteBudgets();
    // Reads the clock source now, as the clock timer does.
    void tick();

    // Derived from the fields above on every call.
    std::vector<usagekit::UsageRecord> usageWindow() const;
    usagekit::Totals totals(usagekit::SpendBudget::Period period) const;
    std::string menuTitle() const;  // "$3.20 · $148.75"
    std::vector<usagekit::BudgetReading> budgetReadings() const;
    Heat heat() const;
    std::vector<SeatComparison> seatComparisons() const;

  signals:
    void ledgerChanged();
    void settingsChanged();
    void budgetsChanged();
    void scanningChanged(bool scanning);
    void limitsChanged();
    void refreshingLimitsChanged(bool refreshing);
    void clockChanged();

  private:
    void setScanning(bool scanning);
    void publish(std::shared_ptr<const usagekit::UsageLedger> ledger);
    // Runs `work` on a worker thread and `done` with its result back on the GUI thread.
    template <class Work, class Done>
    void runInBackground(Work work, Done done);

    usagekit::Notifier* m_notifier;
    Services m_services;
    std::shared_ptr<const usagekit::UsageLedger> m_ledger;
    usagekit::TallySettings m_settings;
    std::vector<usagekit::SpendBudget> m_budgets;
    bool m_scanning = false;
    usagekit::PlanLimitsStore::Snapshot m_limits;
    bool m_refreshingLimits = false;
    usagekit::Date m_clock;
    usagekit::Announced m_announced;
    bool m_started = false;
    // Each local publication bumps it; a remote phase whose local phase is older than
    // the published ledger is dropped instead of bringing back older local records.
    uint64_t m_localGeneration = 0;
    QTimer m_scanTimer;
    QTimer m_clockTimer;
    QThreadPool m_workers;
};

}  // namespace tally
