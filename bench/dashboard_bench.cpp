// Measures the dashboard's usage view on a generated home (bench/make_corpus): the ledger
// is scanned once, then each figure is the median wall time of --runs rounds, each ending
// once the affected widgets are painted:
//   open    building the view on the published ledger, showing it and painting it whole
//   window  choosing another usage window (7 days, 90 days, all, back to 30) and repainting
//   sort    sorting the sessions table (the largest) by cost, then by label, and repainting
//   chart   switching the chart between cost and tokens and repainting it
//   digest  the figures and breakdowns of a window alone, without widgets
// --shots DIR saves the view in the light and the dark scheme as PNG files there.
// Runs on any Qt platform; QT_QPA_PLATFORM=offscreen needs no display.
#include "core/paths.h"
#include "core/settings.h"
#include "shell/app_model.h"
#include "shell/breakdown_panel.h"
#include "shell/daily_chart.h"
#include "shell/dialogs.h"
#include "shell/theme.h"
#include "shell/usage_view.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTableView>
#include <QTemporaryDir>
#include <QToolButton>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

using namespace tally;
using namespace usagekit;

namespace {

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

// Milliseconds of `step`, including the paint it causes.
double timed(const std::function<void()>& step, QWidget& painted) {
    QElapsedTimer timer;
    timer.start();
    step();
    painted.repaint();
    QCoreApplication::processEvents();
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

void report(const char* name, const std::vector<double>& samples) {
    std::printf("%-8s %8.1f ms  (median of %zu, worst %.1f)\n", name, median(samples),
                samples.size(), *std::max_element(samples.begin(), samples.end()));
}

}  // namespace

int main(int argc, char** argv) {
    const char* home = nullptr;
    const char* shots = nullptr;
    int runs = 5;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--home") && i + 1 < argc)
            home = argv[++i];
        else if (!std::strcmp(argv[i], "--shots") && i + 1 < argc)
            shots = argv[++i];
        else if (!std::strcmp(argv[i], "--runs") && i + 1 < argc)
            runs = std::max(1, std::atoi(argv[++i]));
    }
    if (!home) {
        std::fprintf(stderr, "usage: dashboard_bench --home DIR [--runs N]\n");
        return 2;
    }
    QTemporaryDir support;
    setenv("HOME", home, 1);
    setenv("TALLY_SUPPORT_DIR", support.path().toUtf8().constData(), 1);
    TallyPaths::setSupport(support.path().toStdString());
    QApplication app(argc, argv);
    Theme::apply(Theme::Scheme::light);

    AppModel::Services services = AppModel::Services::live();
    services.refreshRemote = [](UsageLedger&) {};
    services.refreshLimits = [](Date, Notifier*) { return PlanLimitsStore::Snapshot{}; };
    AppModel model(nullptr, services);
    {
        QEventLoop published;
        QObject::connect(&model, &AppModel::ledgerChanged, &published, &QEventLoop::quit);
        QElapsedTimer scan;
        scan.start();
        model.scan();
        published.exec();
        std::printf("ledger   %zu records, scanned in %.0f ms\n", model.ledger()->records.size(),
                    static_cast<double>(scan.elapsed()));
    }
    Dialogs dialogs;

    std::vector<double> open, window, sort, chart, digest;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        UsageView view(model, dialogs);
        view.resize(1180, 820);
        view.show();
        view.repaint();
        QCoreApplication::processEvents();
        open.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);

        for (int64_t days : {7, 90, 0, 30}) {
            window.push_back(timed([&] { view.windowButton(days)->click(); }, view));
            if (std::getenv("DASHBOARD_BENCH_VERBOSE"))
                std::printf("  window %lld: %.1f ms\n", static_cast<long long>(days),
                            window.back());
        }

        BreakdownPanel* panel = view.breakdowns();
        panel->showBreakdown(BreakdownModel::Kind::session);
        BreakdownModel* sessions = panel->model(BreakdownModel::Kind::session);
        for (auto column : {BreakdownModel::cost, BreakdownModel::label})
            sort.push_back(timed(
                [&] {
                    panel->table()->sortByColumn(sessions->sectionOf(column), Qt::DescendingOrder);
                },
                *panel));

        for (auto metric : {DailyChart::Metric::tokens, DailyChart::Metric::cost})
            chart.push_back(timed([&] { view.chart()->setMetric(metric); }, *view.chart()));

        timer.restart();
        UsageDigest::of(model.ledger(), 30, model.clock());
        digest.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
        if (run == 0)
            std::printf("window   30 days: %zu records, %d sessions\n",
                        view.digest().records.size(), sessions->rowCount());
    }
    if (shots) {
        UsageView view(model, dialogs);
        view.resize(1180, 820);
        view.show();
        for (auto [scheme, name] :
             {std::pair{Theme::Scheme::light, "light"}, std::pair{Theme::Scheme::dark, "dark"}}) {
            Theme::apply(scheme);
            QCoreApplication::processEvents();
            view.grab().save(QStringLiteral("%1/usage-corpus-%2.png")
                                 .arg(QString::fromUtf8(shots), QLatin1String(name)));
        }
    }
    report("open", open);
    report("window", window);
    report("sort", sort);
    report("chart", chart);
    report("digest", digest);
    return 0;
}
