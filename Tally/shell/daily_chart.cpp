#include "shell/daily_chart.h"

#include "ledger/fmt.h"
#include "shell/provider_colors.h"
#include "shell/ui_text.h"

#include <QBarSet>
#include <QButtonGroup>
#include <QCategoryAxis>
#include <QChart>
#include <QChartView>
#include <QDateTime>
#include <QEvent>
#include <QGraphicsLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLegendMarker>
#include <QStackedBarSeries>
#include <QToolButton>
#include <QToolTip>
#include <QVBoxLayout>
#include <QValueAxis>

#include <algorithm>
#include <cmath>
#include <map>

namespace tally {

using namespace usagekit;

namespace {

QDate localDay(Date day) {
    return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(day.secondsSince1970)).date();
}

QToolButton* segment(const QString& text, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setCheckable(true);
    button->setAutoRaise(true);
    button->setFont(Fonts::caption());
    return button;
}

// Tokens on the axis in the unit of the largest bar, so labels stay short.
struct TokenScale {
    double divisor;
    const char* suffix;
};
TokenScale tokenScale(double largest) {
    if (largest >= 1e9) return {1e9, "B"};
    if (largest >= 1e6) return {1e6, "M"};
    if (largest >= 1e3) return {1e3, "k"};
    return {1, ""};
}

}  // namespace

DailyChart::DailyChart(QWidget* parent) : SurfaceCard(parent) {
    m_title = new QLabel(this);
    Fonts::style(m_title, Fonts::headline());
    m_filterChip = new QToolButton(this);
    m_filterChip->setObjectName(QStringLiteral("chartFilter"));
    m_filterChip->setFont(Fonts::caption());
    m_filterChip->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_filterChip->setToolTip(QStringLiteral("Show every provider and project again"));
    m_filterChip->hide();
    connect(m_filterChip, &QToolButton::clicked, this, [this] {
        setFilter(std::nullopt);
        emit filterCleared();
    });
    m_costButton = segment(QStringLiteral("Cost"), this);
    m_tokensButton = segment(QStringLiteral("Tokens"), this);
    m_costButton->setChecked(true);
    auto* metrics = new QButtonGroup(this);
    metrics->addButton(m_costButton);
    metrics->addButton(m_tokensButton);
    connect(m_costButton, &QToolButton::clicked, this, [this] { setMetric(Metric::cost); });
    connect(m_tokensButton, &QToolButton::clicked, this, [this] { setMetric(Metric::tokens); });

    m_chart = new QChart;
    m_chart->setBackgroundVisible(false);
    m_chart->setMargins(QMargins(0, 4, 18, 0));  // room for the last date's label
    m_chart->layout()->setContentsMargins(0, 0, 0, 0);
    m_chart->legend()->setAlignment(Qt::AlignBottom);
    m_chart->legend()->setFont(Fonts::caption());
    m_chart->setAnimationOptions(QChart::NoAnimation);
    m_view = new QChartView(m_chart, this);
    m_view->setRenderHint(QPainter::Antialiasing);
    m_view->setBackgroundBrush(Qt::transparent);
    m_view->setStyleSheet(QStringLiteral("background: transparent"));
    m_view->setFrameShape(QFrame::NoFrame);
    m_view->setMinimumHeight(220);

    auto* header = new QHBoxLayout;
    header->setSpacing(6);
    header->addWidget(m_title);
    header->addWidget(m_filterChip);
    header->addStretch(1);
    header->addWidget(m_costButton);
    header->addWidget(m_tokensButton);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(16, 12, 12, 8);
    column->setSpacing(4);
    column->addLayout(header);
    column->addWidget(m_view, 1);
    redraw();
}

void DailyChart::setDigest(std::shared_ptr<const UsageDigest> digest) {
    m_digest = std::move(digest);
    redraw();
}

void DailyChart::setFilter(std::optional<Filter> filter) {
    m_filter = std::move(filter);
    redraw();
}

void DailyChart::setMetric(Metric metric) {
    m_metric = metric;
    (metric == Metric::cost ? m_costButton : m_tokensButton)->setChecked(true);
    redraw();
}

void DailyChart::redraw() {
    m_title->setText(m_metric == Metric::cost ? QStringLiteral("Daily cost")
                                              : QStringLiteral("Daily tokens"));
    m_filterChip->setVisible(m_filter.has_value());
    if (m_filter) m_filterChip->setText(QStringLiteral("only %1  \u2715").arg(m_filter->label));

    m_chart->removeAllSeries();
    for (QAbstractAxis* axis : m_chart->axes()) {
        m_chart->removeAxis(axis);
        delete axis;
    }
    m_days.clear();
    m_points.clear();
    if (!m_digest) return;
    m_days = m_digest->days();
    if (m_days.empty()) return;
    const UsageLedger& ledger = *m_digest->ledger;
    if (!m_filter)
        m_points = ledger.daily(m_digest->records, m_days.front(), m_days.back());
    else if (m_filter->by == Filter::By::provider)
        m_points =
            ledger.daily(m_digest->ofProvider(m_filter->value), m_days.front(), m_days.back());
    else
        m_points =
            ledger.daily(m_digest->ofProject(m_filter->value), m_days.front(), m_days.back());

    std::map<double, int> slot;
    for (size_t i = 0; i < m_days.size(); ++i)
        slot.emplace(m_days[i].secondsSince1970, static_cast<int>(i));
    // One bar set per provider, in catalogue order so colours and stacking stay put.
    std::map<size_t, QBarSet*> sets;
    std::vector<double> stacked(m_days.size(), 0);
    const auto& catalogue = Provider::all();
    for (const Point& point : m_points) {
        auto day = slot.find(point.day.secondsSince1970);
        if (day == slot.end()) continue;
        const size_t order = static_cast<size_t>(
            std::find(catalogue.begin(), catalogue.end(), point.provider) - catalogue.begin());
        QBarSet*& set = sets[order];
        if (!set) {
            set = new QBarSet(toQt(point.provider.name()));
            set->setProperty("provider", toQt(point.provider.id));
            for (size_t i = 0; i < m_days.size(); ++i)
                set->append(0);
        }
        const double value =
            m_metric == Metric::cost ? point.costUSD : static_cast<double>(point.tokens);
        set->replace(day->second, set->at(day->second) + value);
        stacked[static_cast<size_t>(day->second)] += value;
    }
    const double largest = std::max(1e-9, *std::max_element(stacked.begin(), stacked.end()));
    const TokenScale scale = m_metric == Metric::tokens ? tokenScale(largest) : TokenScale{1, ""};

    auto* series = new QStackedBarSeries;
    series->setBarWidth(m_days.size() > 120 ? 1.0 : 0.72);
    for (auto& [order, set] : sets) {
        if (scale.divisor != 1)
            for (int i = 0; i < set->count(); ++i)
                set->replace(i, set->at(i) / scale.divisor);
        series->append(set);
    }
    m_chart->addSeries(series);
    connect(series, &QStackedBarSeries::hovered, this, [this](bool on, int index, QBarSet*) {
        if (on)
            QToolTip::showText(QCursor::pos(), tooltip(index), m_view);
        else
            QToolTip::hideText();
    });

    // Days along the bottom: about eight dated ticks whatever the window's length.
    auto* days = new QCategoryAxis;
    days->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
    const int n = static_cast<int>(m_days.size());
    const int step = std::max(1, static_cast<int>(std::ceil(n / 8.0)));
    // Counted back from today so the newest day always has its date; appended oldest first,
    // as the axis wants its categories in rising order.
    std::vector<int> ticks;
    for (int i = n - 1; i >= 0; i -= step)
        ticks.insert(ticks.begin(), i);
    for (int i : ticks)
        days->append(localDay(m_days[static_cast<size_t>(i)]).toString(QStringLiteral("d MMM")), i);
    days->setRange(-0.5, n - 0.5);
    days->setGridLineVisible(false);
    days->setLabelsFont(Fonts::caption());
    m_chart->addAxis(days, Qt::AlignBottom);
    series->attachAxis(days);

    auto* amounts = new QValueAxis;
    amounts->setRange(0, largest / scale.divisor * 1.08);
    amounts->applyNiceNumbers();
    amounts->setTickCount(5);
    amounts->setLabelsFont(Fonts::caption());
    if (m_metric == Metric::cost)
        amounts->setLabelFormat(amounts->max() < 5 ? QStringLiteral("$%.2f")
                                                   : QStringLiteral("$%.0f"));
    else
        amounts->setLabelFormat(QStringLiteral("%.1f") + QLatin1String(scale.suffix));
    m_chart->addAxis(amounts, Qt::AlignLeft);
    series->attachAxis(amounts);
    m_chart->legend()->setVisible(!sets.empty());
    recolor();
}

void DailyChart::recolor() {
    const QColor ink = Theme::ink();
    const QColor secondary = Theme::secondaryInk();
    m_chart->legend()->setLabelColor(ink);
    for (QAbstractAxis* axis : m_chart->axes()) {
        axis->setLabelsColor(secondary);
        axis->setLinePenColor(Theme::borderStrong());
        axis->setGridLineColor(Theme::border());
    }
    for (QAbstractSeries* series : m_chart->series())
        for (QBarSet* set : static_cast<QStackedBarSeries*>(series)->barSets()) {
            const QColor color =
                providerColor(Provider(set->property("provider").toString().toStdString()));
            set->setColor(color);
            set->setBorderColor(color);
        }
    const QString checked =
        QStringLiteral("QToolButton:checked { background: %1; border-radius: 4px; }")
            .arg(Theme::fillSelected().name(QColor::HexArgb));
    m_costButton->setStyleSheet(checked);
    m_tokensButton->setStyleSheet(checked);
}

void DailyChart::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange) recolor();
    SurfaceCard::changeEvent(event);
}

QString DailyChart::tooltip(int dayIndex) const {
    if (dayIndex < 0 || dayIndex >= static_cast<int>(m_days.size())) return {};
    const Date day = m_days[static_cast<size_t>(dayIndex)];
    QString text =
        QStringLiteral("<b>%1</b>").arg(localDay(day).toString(QStringLiteral("ddd d MMM yyyy")));
    for (const Point& point : m_points) {
        if (point.day != day) continue;
        text += QStringLiteral("<br>%1: %2 \u00B7 %3 tokens")
                    .arg(toQt(point.provider.name()).toHtmlEscaped(),
                         toQt(Fmt::cents(point.costUSD)), toQt(Fmt::tokens(point.tokens)));
    }
    return text;
}

}  // namespace tally
