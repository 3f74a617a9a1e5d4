#include "shell/app_model.h"

#include "core/store.h"
#include "ledger/fmt.h"

#include <QMetaObject>

#include <algorithm>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tally {

using namespace usagekit;

AppModel::Services AppModel::Services::live() {
    Services services;
    services.scanLocal = [](UsageLedger& ledger) { ledger.scanLocal(); };
    services.refreshRemote = [](UsageLedger& ledger) { ledger.refreshRemote(); };
    services.refreshLimits = [](Date now, Notifier* notifier) {
        return PlanLimitsStore::shared().refresh(now, notifier);
    };
    services.now = [] { return Date::now(); };
    return services;
}

AppModel::AppModel(Notifier* notifier, Services services, QObject* parent)
    : QObject(parent),
      m_notifier(notifier),
      m_services(std::move(services)),
      m_ledger(std::make_shared<UsageLedger>()),
      m_settings(TallySettings::load()),
      m_budgets(SpendBudget::load()),
      m_limits(PlanLimitsStore::shared().cached()),
      m_clock(m_services.now()),
      m_announced(Announced::load()),
      m_scanTimer(this),
      m_clockTimer(this) {
    // A scan and a limits refresh may run side by side; nothing else runs in the pool.
    m_workers.setMaxThreadCount(2);
    m_scanTimer.setTimerType(Qt::VeryCoarseTimer);
    m_clockTimer.setTimerType(Qt::VeryCoarseTimer);
    connect(&m_scanTimer, &QTimer::timeout, this, [this] {
        if (!m_scanning) scan();
        if (!m_refreshingLimits) refreshLimits();
    });
    connect(&m_clockTimer, &QTimer::timeout, this, &AppModel::tick);
}

AppModel::~AppModel() {
    m_workers.waitForDone();
}

namespace {

// Background work yields to the GUI thread: a cold scan keeps every core busy, and at equal
// priority the GUI thread waited its turn for tens of milliseconds. The threads a scan starts
// inherit the lower priority. On Linux a nice value belongs to the calling thread alone.
void yieldToTheGuiThread() {
    thread_local const bool lowered = [] {
        return ::setpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid)), 5) == 0;
    }();
    (void)lowered;
}

}  // namespace

template <class Work, class Done>
void AppModel::runInBackground(Work work, Done done) {
    m_workers.start([this, work = std::move(work), done = std::move(done)]() mutable {
        yieldToTheGuiThread();
        auto result = work();
        QMetaObject::invokeMethod(
            this,
            [done = std::move(done), result = std::move(result)]() mutable {
                done(std::move(result));
            },
            Qt::QueuedConnection);
    });
}

void AppModel::setSettings(const TallySettings& settings) {
    if (settings == m_settings) return;
    m_settings = settings;
    emit settingsChanged();
}

void AppModel::setBudgets(const std::vector<SpendBudget>& budgets) {
    if (budgets == m_budgets) return;
    m_budgets = budgets;
    emit budgetsChanged();
}

void AppModel::setScanning(bool scanning) {
    if (scanning == m_scanning) return;
    m_scanning = scanning;
    emit scanningChanged(scanning);
}

void AppModel::publish(std::shared_ptr<const UsageLedger> ledger) {
    m_ledger = std::move(ledger);
    emit ledgerChanged();
    noteBudgets();
}

void AppModel::start() {
    if (m_started) return;
    m_started = true;
    scan();
    refreshLimits();
    m_scanTimer.start(m_services.scanPeriod);
    m_clockTimer.start(m_services.clockPeriod);
}

namespace {

// A copy made on the worker, so the GUI thread only swaps a pointer.
std::shared_ptr<const UsageLedger> publishedCopy(const UsageLedger& ledger) {
    auto copy = std::make_shared<UsageLedger>(ledger.pricing);
    copy->copy(ledger);
    return copy;
}

struct Phase {
    std::shared_ptr<UsageLedger> working;
    std::shared_ptr<const UsageLedger> published;
};

}  // namespace

void AppModel::scan() {
    if (m_scanning) return;
    setScanning(true);
    auto scanLocal = m_services.scanLocal;
    auto refreshRemote = m_services.refreshRemote;
    runInBackground(
        [scanLocal] {
            auto working = std::make_shared<UsageLedger>();
            scanLocal(*working);
            return Phase{working, publishedCopy(*working)};
        },
        [this, refreshRemote](Phase local) {
            const uint64_t generation = ++m_localGeneration;
            setScanning(false);
            publish(std::move(local.published));
            runInBackground(
                [refreshRemote, working = std::move(local.working)] {
                    refreshRemote(*working);
                    return publishedCopy(*working);
                },
                [this, generation](std::shared_ptr<const UsageLedger> remote) {
                    if (generation == m_localGeneration) publish(std::move(remote));
                });
        });
}

void AppModel::refreshRemoteUsage() {
    if (m_scanning) return;
    setScanning(true);
    auto refreshRemote = m_services.refreshRemote;
    runInBackground(
        [refreshRemote, current = m_ledger] {
            UsageLedger working(current->pricing);
            working.copy(*current);
            refreshRemote(working);
            return publishedCopy(working);
        },
        [this](std::shared_ptr<const UsageLedger> remote) {
            publish(std::move(remote));
            setScanning(false);
        });
}

void AppModel::refreshLimits() {
    if (m_refreshingLimits) return;
    m_refreshingLimits = true;
    emit refreshingLimitsChanged(true);
    auto refresh = m_services.refreshLimits;
    runInBackground(
        [refresh, now = m_clock, notifier = m_notifier] { return refresh(now, notifier); },
        [this](PlanLimitsStore::Snapshot snapshot) {
            m_limits = std::move(snapshot);
            emit limitsChanged();
            m_refreshingLimits = false;
            emit refreshingLimitsChanged(false);
        });
}

void AppModel::noteBudgets() {
    if (!m_settings.notifyBudgets || !m_notifier) return;
    const std::set<std::string> announced(m_announced.keys.begin(), m_announced.keys.end());
    std::vector<BudgetCrossing> crossed =
        BudgetMath::crossings(budgetReadings(), announced, m_clock);
    BudgetNotifier::announce(crossed, m_announced, *m_notifier);
}

void AppModel::tick() {
    m_clock = m_services.now();
    emit clockChanged();
}

std::vector<UsageRecord> AppModel::usageWindow() const {
    return m_ledger->since(m_settings.usageWindow, m_clock);
}

Totals AppModel::totals(SpendBudget::Period period) const {
    return m_ledger->totals(m_ledger->datedFrom(BudgetMath::start(period, m_clock)));
}

std::string AppModel::menuTitle() const {
    return Fmt::cents(totals(SpendBudget::Period::day).allUSD()) + " \u00B7 " +
           Fmt::cents(totals(SpendBudget::Period::month).allUSD());
}

std::vector<BudgetReading> AppModel::budgetReadings() const {
    return BudgetMath::readings(m_budgets, m_ledger->records, m_ledger->pricing, m_clock);
}

AppModel::Heat AppModel::heat() const {
    Heat heat = Heat::cool;
    for (const BudgetReading& reading : budgetReadings()) {
        if (reading.budget.capUSD <= 0) continue;
        const double share = reading.spentUSD / reading.budget.capUSD;
        if (share >= 1.0) return Heat::hot;
        if (share >= 0.8) heat = Heat::warm;
    }
    return heat;
}

std::vector<AppModel::SeatComparison> AppModel::seatComparisons() const {
    std::vector<UsageRecord> rows;
    for (const UsageRecord& record :
         m_ledger->datedFrom(BudgetMath::start(SpendBudget::Period::month, m_clock)))
        if (!record.provider.isMetered()) rows.push_back(record);
    std::vector<SeatComparison> comparisons;
    for (const Slice& slice : m_ledger->byProvider(rows)) {
        auto seat = m_settings.seatPrices.find(slice.id);
        if (seat == m_settings.seatPrices.end() || seat->second <= 0 || slice.costUSD <= 0)
            continue;
        comparisons.push_back({Provider(slice.id), slice.costUSD, seat->second});
    }
    return comparisons;
}

}  // namespace tally
