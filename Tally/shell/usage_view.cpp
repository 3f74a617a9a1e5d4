#include "shell/usage_view.h"

#include "ledger/fmt.h"
#include "shell/app_model.h"
#include "shell/breakdown_panel.h"
#include "shell/daily_chart.h"
#include "shell/dialogs.h"
#include "shell/export_usage.h"
#include "shell/first_run.h"
#include "shell/plan_limits_card.h"
#include "shell/pricing_file.h"
#include "shell/settings_dialog.h"
#include "shell/side_cards.h"
#include "shell/theme.h"
#include "shell/ui_text.h"
#include "shell/usage_figures.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace tally {

using namespace usagekit;

UsageView::UsageView(AppModel& model, Dialogs& dialogs, QWidget* parent)
    : QWidget(parent), m_model(model), m_dialogs(dialogs) {
    m_pages = new QStackedWidget(this);
    m_firstRun = new FirstRunPanel(m_pages);
    connect(m_firstRun, &FirstRunPanel::settingsRequested, this, [this] { openSettings(); });
    m_pages->addWidget(dashboard());
    m_pages->addWidget(m_firstRun);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(headerBar());
    column->addWidget(m_pages, 1);

    connect(&m_model, &AppModel::ledgerChanged, this, [this] {
        refreshDigest();
        refreshSide();
        refreshScanAge();
    });
    connect(&m_model, &AppModel::settingsChanged, this, [this] {
        const int64_t days = m_model.settings().usageWindow;
        for (auto& [window, button] : m_windowButtons)
            button->setChecked(window == std::max<int64_t>(days, 0));
        if (std::max<int64_t>(days, 0) != m_digest->windowDays) refreshDigest();
        refreshSide();
    });
    connect(&m_model, &AppModel::clockChanged, this, [this] {
        refreshScanAge();
        // Windows and "this month" move with the day; within a day a tick only ages texts.
        if (Calendar::startOfDay(m_model.clock()) != m_digestDay) {
            refreshDigest();
            refreshSide();
        }
    });
    connect(&m_model, &AppModel::scanningChanged, this, &UsageView::refreshScanning);
    refreshDigest();
    refreshSide();
    refreshScanAge();
    refreshScanning();
}

QWidget* UsageView::headerBar() {
    auto* bar = new QWidget(this);
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(20, 12, 20, 8);
    row->setSpacing(8);
    auto* title = new QLabel(QStringLiteral("Usage"), bar);
    Fonts::style(title, Fonts::weighted(Fonts::figure(), QFont::DemiBold));
    row->addWidget(title);
    row->addSpacing(12);

    // The window selector: one segmented group, saved in the settings.
    auto* segments = new QWidget(bar);
    auto* segmentRow = new QHBoxLayout(segments);
    segmentRow->setContentsMargins(0, 0, 0, 0);
    segmentRow->setSpacing(0);
    auto* group = new QButtonGroup(bar);
    const std::pair<int64_t, const char*> windows[] = {
        {7, "7 days"}, {30, "30 days"}, {90, "90 days"}, {0, "All"}};
    for (const auto& [days, text] : windows) {
        auto* button = new QToolButton(segments);
        button->setText(QLatin1String(text));
        button->setCheckable(true);
        button->setAutoRaise(true);
        button->setObjectName(QStringLiteral("window:%1").arg(days));
        button->setToolTip(days == 0 ? QStringLiteral("Every record Tally has")
                                     : QStringLiteral("The last %1 days, up to now").arg(days));
        button->setChecked(std::max<int64_t>(m_model.settings().usageWindow, 0) == days);
        connect(button, &QToolButton::clicked, this, [this, days] { setWindow(days); });
        group->addButton(button);
        segmentRow->addWidget(button);
        m_windowButtons[days] = button;
    }
    row->addWidget(segments);
    row->addStretch(1);

    m_scanAge = new QLabel(bar);
    m_scanAge->setObjectName(QStringLiteral("scanAge"));
    Fonts::style(m_scanAge, Fonts::caption(), true);
    row->addWidget(m_scanAge);
    m_progress = new QProgressBar(bar);
    m_progress->setRange(0, 0);  // busy: a scan has no known length
    m_progress->setTextVisible(false);
    m_progress->setFixedSize(60, 6);
    m_progress->hide();
    row->addWidget(m_progress);
    m_rescan = new QPushButton(QStringLiteral("Rescan"), bar);
    m_export = new QPushButton(QStringLiteral("Export\u2026"), bar);
    m_settings = new QPushButton(QStringLiteral("Settings"), bar);
    connect(m_rescan, &QPushButton::clicked, &m_model, &AppModel::scan);
    connect(m_export, &QPushButton::clicked, this, &UsageView::exportUsage);
    connect(m_settings, &QPushButton::clicked, this, [this] { openSettings(); });
    row->addWidget(m_rescan);
    row->addWidget(m_export);
    row->addWidget(m_settings);
    return bar;
}

QWidget* UsageView::dashboard() {
    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(20, 4, 20, 20);
    column->setSpacing(12);
    m_figures = new FiguresRow(content);
    m_unpriced = new UnpricedStrip(content);
    connect(m_unpriced, &UnpricedStrip::openPricingRequested, this, &UsageView::openPricing);
    column->addWidget(m_figures);
    column->addWidget(m_unpriced);

    auto* columns = new QHBoxLayout;
    columns->setSpacing(12);
    auto* main = new QVBoxLayout;
    main->setSpacing(12);
    m_chart = new DailyChart(content);
    m_chart->setMinimumHeight(280);
    m_breakdowns = new BreakdownPanel(content);
    connect(m_breakdowns, &BreakdownPanel::chartFilterChanged, m_chart, &DailyChart::setFilter);
    connect(m_chart, &DailyChart::filterCleared, m_breakdowns, &BreakdownPanel::clearSelection);
    main->addWidget(m_chart);
    main->addWidget(m_breakdowns, 1);
    auto* side = new QVBoxLayout;
    side->setSpacing(12);
    m_limits = new PlanLimitsCard(m_model, content);
    m_seats = new SeatCard(content);
    m_balances = new BalancesCard(content);
    m_problems = new ProblemsCard(content);
    for (QWidget* card :
         std::initializer_list<QWidget*>{m_limits, m_seats, m_balances, m_problems}) {
        card->setFixedWidth(300);
        side->addWidget(card);
    }
    side->addStretch(1);
    columns->addLayout(main, 1);
    columns->addLayout(side);
    column->addLayout(columns, 1);

    auto* scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    // The view's paper shows through (setWidget turned the content's own fill on).
    scroll->viewport()->setAutoFillBackground(false);
    content->setAutoFillBackground(false);
    return scroll;
}

void UsageView::setWindow(int64_t days) {
    TallySettings settings = m_model.settings();
    if (settings.usageWindow == days) return;
    settings.usageWindow = days;
    m_model.setSettings(settings);
    settings.save();
}

void UsageView::refreshDigest() {
    m_digest = std::make_shared<UsageDigest>(
        UsageDigest::of(m_model.ledger(), m_model.settings().usageWindow, m_model.clock()));
    m_digestDay = Calendar::startOfDay(m_model.clock());
    m_figures->showDigest(*m_digest);
    m_unpriced->showDigest(*m_digest);
    m_breakdowns->showDigest(*m_digest);
    m_chart->setDigest(m_digest);
    m_pages->setCurrentWidget(m_digest->ledger->records.empty() ? static_cast<QWidget*>(m_firstRun)
                                                                : m_pages->widget(0));
}

void UsageView::refreshSide() {
    m_seats->showComparisons(m_model.seatComparisons());
    m_balances->showBalances(m_model.ledger()->balances);
    m_problems->showProblems(m_model.ledger()->problems);
}

void UsageView::refreshScanAge() {
    const auto& lastScan = m_model.ledger()->lastScan;
    m_scanAge->setText(lastScan ? QStringLiteral("Scanned ") +
                                      QString::fromStdString(Fmt::ago(*lastScan, m_model.clock()))
                                : QStringLiteral("Not scanned yet"));
}

void UsageView::refreshScanning() {
    const bool scanning = m_model.scanning();
    m_progress->setVisible(scanning);
    m_rescan->setEnabled(!scanning);
    m_rescan->setText(scanning ? QStringLiteral("Scanning\u2026") : QStringLiteral("Rescan"));
    m_firstRun->setScanning(scanning);
}

void UsageView::paintEvent(QPaintEvent*) {
    // Paper is not a palette colour, so it is painted here, under every card.
    QPainter(this).fillRect(rect(), Theme::paper());
}

bool UsageView::showsFirstRun() const {
    return m_pages->currentWidget() == m_firstRun;
}

QToolButton* UsageView::windowButton(int64_t days) const {
    auto it = m_windowButtons.find(days);
    return it == m_windowButtons.end() ? nullptr : it->second;
}

SettingsDialog* UsageView::openSettings() {
    auto* dialog = new SettingsDialog(m_model, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
    return dialog;
}

bool UsageView::exportUsage() {
    return tally::exportUsage(m_model, m_dialogs, this);
}

void UsageView::openPricing() {
    std::filesystem::path path;
    try {
        path = ensurePricingFile();
    } catch (const std::exception& error) {
        m_dialogs.showError(this, QStringLiteral("pricing.json"),
                            QStringLiteral("Tally could not create %1.\n\n%2")
                                .arg(QString::fromStdString(Pricing::file().string()),
                                     QString::fromLocal8Bit(error.what())));
        return;
    }
    const QString file = QString::fromStdString(path.string());
    if (!m_dialogs.openFile(file))
        m_dialogs.showError(this, QStringLiteral("pricing.json"),
                            QStringLiteral("No application here opens JSON files. The file is "
                                           "%1; Tally reads it at the next scan.")
                                .arg(file));
}

}  // namespace tally
