// The dashboard's usage view on a home of fixture logs, read from its widgets and models
// and set against what the built `tally` prints for the same home.
#include "shell/usage_view.h"
#include "core/pricing.h"
#include "core/settings.h"
#include "core/store.h"
#include "ledger/fmt.h"
#include "shell/app_model.h"
#include "shell/breakdown_panel.h"
#include "shell/daily_chart.h"
#include "shell/first_run.h"
#include "shell/theme.h"
#include "shell/usage_figures.h"
#include "support/scripted_dialogs.h"
#include "support/shell_fixture.h"
#include "support/usage_home.h"

#include <QBarSet>
#include <QChart>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedBarSeries>
#include <QTableView>
#include <QToolButton>
#include <QtTest>

#include <memory>

using namespace tally;
using namespace tally::testing;
using namespace usagekit;
using Kind = BreakdownModel::Kind;

namespace {

// A scanned home with the view open on it, every record in the window.
struct Dashboard {
    ScratchHome home;
    Date now = Date::now();
    std::unique_ptr<AppModel> model;
    ScriptedDialogs dialogs;
    std::unique_ptr<UsageView> view;

    explicit Dashboard(void (*fill)(const ScratchHome&) = fillFixtureHome, int64_t days = 0) {
        fill(home);
        TallySettings settings;
        settings.usageWindow = days;
        settings.save();
        model = localModel(&now);
        view = std::make_unique<UsageView>(*model, dialogs);
        view->resize(1180, 820);
        scanAndWait(*model);
    }
    QString figure(const char* caption) const {
        return view->figures()->figure(QLatin1String(caption))->text();
    }
};

void noLogs(const ScratchHome&) {}

QString withoutGrouping(QString amount) {
    return amount.remove(QLatin1Char(','));
}

}  // namespace

class UsageViewTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() { Theme::apply(Theme::Scheme::light); }

    void FiguresMatchTheTerminalSummary() {
        Dashboard board;
        const QString summary = QString::fromUtf8(runTally({QStringLiteral("--scan")}));
        const QString expected =
            QStringLiteral("all %1 billed %2 equivalent %3 \u00B7 ")
                .arg(withoutGrouping(board.figure("all")), withoutGrouping(board.figure("billed")),
                     withoutGrouping(board.figure("API-equivalent")));
        QVERIFY2(summary.contains(expected), qPrintable(summary + "\nwanted: " + expected));
        QVERIFY(board.figure("all") != QStringLiteral("$0.00"));
    }

    void ProviderRowsMatchTheTerminalLines() {
        Dashboard board;
        const QStringList lines = QString::fromUtf8(runTally({QStringLiteral("--scan")}))
                                      .split(QLatin1Char('\n'))
                                      .filter(QStringLiteral(" tokens"));
        BreakdownModel* providers = board.view->breakdowns()->model(Kind::provider);
        QCOMPARE(providers->rowCount(), lines.size());
        for (int row = 0; row < providers->rowCount(); ++row) {
            auto cell = [&](BreakdownModel::Column column) {
                return providers->index(row, providers->sectionOf(column)).data().toString();
            };
            QCOMPARE(QStringLiteral("  %1  %2  %3 tokens")
                         .arg(cell(BreakdownModel::label), cell(BreakdownModel::cost),
                              cell(BreakdownModel::tokens)),
                     lines[row]);
        }
    }

    void ExportedJsonEqualsTheTerminalExport() {
        Dashboard board;
        const QString path = board.home.path() + QStringLiteral("/out/usage.json");
        board.dialogs.saveAnswer = Dialogs::SaveChoice{path, QStringLiteral("CSV (*.csv)")};
        QVERIFY(board.view->exportUsage());
        QCOMPARE(board.dialogs.suggestedName, QStringLiteral("tally-usage.csv"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), runTally({QStringLiteral("--export"), QStringLiteral("json"),
                                           QStringLiteral("--days"), QStringLiteral("0")}));
    }

    void NameWithoutSuffixTakesTheChosenFormat() {
        Dashboard board(fillFixtureHome, 30);
        const QString path = board.home.path() + QStringLiteral("/usage");
        board.dialogs.saveAnswer = Dialogs::SaveChoice{path, QStringLiteral("JSON (*.json)")};
        QVERIFY(board.view->exportUsage());
        QFile file(path + QStringLiteral(".json"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), runTally({QStringLiteral("--export"), QStringLiteral("json")}));
    }

    void ExportThatCannotBeWrittenSaysWhy() {
        Dashboard board;
        // A file where the folder should be: no folder can be made there, not even by root.
        const QString blocker = board.home.path() + QStringLiteral("/not-a-folder");
        board.home.write(QStringLiteral("../not-a-folder"), "x");
        board.dialogs.saveAnswer =
            Dialogs::SaveChoice{blocker + QStringLiteral("/tally-usage.csv"), {}};
        QVERIFY(!board.view->exportUsage());
        QCOMPARE(board.dialogs.errors.size(), 1);
        QVERIFY(board.dialogs.errors[0].contains(blocker));
    }

    void WindowChoiceSurvivesARestart() {
        Dashboard board;
        const QString allCalls = board.figure("calls");
        board.view->windowButton(7)->click();
        QCOMPARE(TallySettings::load().usageWindow, 7);
        QVERIFY(board.figure("calls") != allCalls);

        auto model = localModel(&board.now);
        UsageView reopened(*model, board.dialogs);
        QVERIFY(reopened.windowButton(7)->isChecked());
        QVERIFY(!reopened.windowButton(0)->isChecked());
    }

    void CostSortsAsMoneyNotAsText() {
        Dashboard board;
        BreakdownPanel* panel = board.view->breakdowns();
        panel->showBreakdown(Kind::model);
        BreakdownModel* models = panel->model(Kind::model);
        panel->table()->sortByColumn(models->sectionOf(BreakdownModel::cost), Qt::DescendingOrder);
        QSortFilterProxyModel* rows = panel->proxy();
        QVERIFY(rows->rowCount() > 2);
        for (int row = 1; row < rows->rowCount(); ++row) {
            const auto cost = [&](int r) {
                const QString text =
                    rows->index(r, models->sectionOf(BreakdownModel::cost)).data().toString();
                return withoutGrouping(text.mid(1)).toDouble();
            };
            QVERIFY2(cost(row - 1) >= cost(row), qPrintable(QString::number(row)));
        }
    }

    void FilterKeepsOnlyMatchingLabels() {
        Dashboard board;
        BreakdownPanel* panel = board.view->breakdowns();
        panel->showBreakdown(Kind::model);
        const int all = panel->proxy()->rowCount();
        QTest::keyClicks(panel->filterField(), QStringLiteral("SONNET"));
        QCOMPARE(panel->proxy()->rowCount(), 1);
        QVERIFY(all > 1);
        QCOMPARE(panel->proxy()->index(0, 0).data().toString(),
                 QStringLiteral("claude-sonnet-4-6"));
    }

    void SelectingAProviderNarrowsTheChart() {
        Dashboard board;
        BreakdownPanel* panel = board.view->breakdowns();
        QSortFilterProxyModel* rows = panel->proxy();
        int codex = -1;
        for (int row = 0; row < rows->rowCount(); ++row)
            if (rows->index(row, 0).data(BreakdownModel::IdRole) == QStringLiteral("codex-cli"))
                codex = row;
        QVERIFY(codex >= 0);
        panel->table()->selectRow(codex);
        const auto& points = board.view->chart()->points();
        QVERIFY(!points.empty());
        for (const Point& point : points)
            QCOMPARE(point.provider.id, std::string("codex-cli"));
    }

    void EmptyDaysKeepTheirSlotInTheChart() {
        Dashboard board(fillFixtureHome, 7);
        DailyChart* chart = board.view->chart();
        QCOMPARE(chart->days().size(), size_t(8));  // the window reaches into an eighth day
        auto* series = qobject_cast<QStackedBarSeries*>(chart->chart()->series().value(0));
        QVERIFY(series && !series->barSets().isEmpty());
        for (QBarSet* set : series->barSets())
            QCOMPARE(set->count(), 8);
    }

    void UnpricedModelIsNamedAndGetsAPricingFileTheLoaderAccepts() {
        Dashboard board;
        QVERIFY(board.view->unpricedStrip()->isVisibleTo(board.view.get()));
        QVERIFY(board.view->unpricedStrip()->text()->text().contains(
            QStringLiteral("mystery-model-9 (1 record, 1.0k tokens)")));
        board.view->openPricing();
        QCOMPARE(board.dialogs.opened,
                 QStringList{QString::fromStdString(Pricing::file().string())});
        QVERIFY(Store::load<Pricing>(Pricing::file()).has_value());
        QVERIFY(Pricing::load().rates == Pricing::builtIn().rates);
    }

    void EmptyHomeSaysWhereTallyLooks() {
        Dashboard board(noLogs);
        QVERIFY(board.view->showsFirstRun());
        QCOMPARE(board.view->firstRun()->headline()->text(), QStringLiteral("Nothing tallied yet"));
        const QStringList texts = [&] {
            QStringList all;
            for (QLabel* label : board.view->firstRun()->findChildren<QLabel*>())
                all << label->text();
            return all;
        }();
        QVERIFY(texts.contains(QStringLiteral("~/.claude/projects")));
    }

    void SessionRowShowsItsFirstAndLastRecord() {
        Dashboard board;
        const QJsonArray rows =
            QJsonDocument::fromJson(runTally({QStringLiteral("--export"), QStringLiteral("json"),
                                              QStringLiteral("--days"), QStringLiteral("0")}))
                .array();
        const QString session = QStringLiteral("4f6c2a10-aaaa-4bbb-8ccc-000000000001");
        QDateTime first, last;
        for (const QJsonValue& row : rows) {
            if (row[QStringLiteral("session")].toString() != session) continue;
            const QDateTime date =
                QDateTime::fromString(row[QStringLiteral("date")].toString(), Qt::ISODate);
            if (!first.isValid() || date < first) first = date;
            if (!last.isValid() || date > last) last = date;
        }
        BreakdownModel* sessions = board.view->breakdowns()->model(Kind::session);
        for (int row = 0; row < sessions->rowCount(); ++row) {
            if (sessions->index(row, 0).data(BreakdownModel::IdRole).toString() != session)
                continue;
            auto seconds = [&](BreakdownModel::Column column) {
                return sessions->index(row, sessions->sectionOf(column))
                    .data(BreakdownModel::SortRole)
                    .toDouble();
            };
            QCOMPARE(seconds(BreakdownModel::first), double(first.toSecsSinceEpoch()));
            QCOMPARE(seconds(BreakdownModel::last), double(last.toSecsSinceEpoch()));
            QVERIFY(first < last);
            return;
        }
        QFAIL("no row for the session");
    }

    void RescanShowsProgressUntilPublished() {
        Dashboard board;
        QSignalSpy published(board.model.get(), &AppModel::ledgerChanged);
        board.view->rescanButton()->click();
        QVERIFY(!board.view->rescanButton()->isEnabled());
        QCOMPARE(board.view->rescanButton()->text(), QStringLiteral("Scanning\u2026"));
        QVERIFY(published.wait(30'000));
        QVERIFY(board.view->rescanButton()->isEnabled());
        QCOMPARE(board.view->rescanButton()->text(), QStringLiteral("Rescan"));
    }

    void ChartFollowsTheSchemeLiveAndWhileHidden() {
        Dashboard board;
        auto labels = [&] { return board.view->chart()->chart()->axes().value(0)->labelsColor(); };
        board.view->show();
        Theme::apply(Theme::Scheme::dark);
        QTRY_COMPARE(labels(), Theme::secondaryInk());
        board.view->hide();  // closed to the tray while the desktop turns light again
        Theme::apply(Theme::Scheme::light);
        board.view->show();
        QTRY_COMPARE(labels(), Theme::secondaryInk());
    }

    void ScanAgeFollowsTheModelClock() {
        Dashboard board;
        QCOMPARE(board.view->scanAge()->text(), QStringLiteral("Scanned just now"));
        board.now = board.now.addingSeconds(5 * 60 + 5);
        board.model->tick();
        QCOMPARE(board.view->scanAge()->text(), QStringLiteral("Scanned 5 min. ago"));
    }

    void SavesScreenshots() {
        using Fill = void (*)(const ScratchHome&);
        const std::pair<Fill, const char*> homes[] = {
            {noLogs, "empty"}, {fillFixtureHome, "fixture"}, {fillDemoHome, "demo"}};
        for (auto [fill, name] : homes) {
            Dashboard board(fill, 30);
            for (Theme::Scheme scheme : {Theme::Scheme::light, Theme::Scheme::dark}) {
                Theme::apply(scheme);
                board.view->show();
                QCoreApplication::processEvents();
                saveShot(*board.view, QStringLiteral("usage-%1-%2")
                                          .arg(QLatin1String(name), scheme == Theme::Scheme::dark
                                                                        ? QStringLiteral("dark")
                                                                        : QStringLiteral("light")));
            }
            Theme::apply(Theme::Scheme::light);
        }
    }
};

QTEST_MAIN(UsageViewTest)
#include "usage_view_test.moc"
