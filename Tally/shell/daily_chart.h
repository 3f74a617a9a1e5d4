// The usage window as a daily stacked bar chart, one colour per provider, in dollars or
// tokens. Every local day of the window has its slot, so a day without usage is a gap.
// The points come from the ledger's daily series; a filter (one provider, or one project)
// narrows the records first. Qt Charts ignores the palette, so the chart recolours itself
// on every palette change. GUI thread only.
#pragma once

#include "core/date.h"
#include "ledger/aggregations.h"
#include "shell/models/usage_digest.h"
#include "shell/theme.h"

#include <QWidget>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class QLabel;
class QToolButton;

QT_BEGIN_NAMESPACE
class QChart;
class QChartView;
QT_END_NAMESPACE

namespace tally {

class DailyChart : public SurfaceCard {
    Q_OBJECT
  public:
    enum class Metric { cost, tokens };
    struct Filter {
        enum class By { provider, project } by = By::provider;
        std::string value;  // provider id or project name
        QString label;      // what the user reads: "Claude Code", "tally"
    };

    explicit DailyChart(QWidget* parent = nullptr);

    void setDigest(std::shared_ptr<const UsageDigest> digest);
    void setFilter(std::optional<Filter> filter);
    void setMetric(Metric metric);
    Metric metric() const { return m_metric; }

    // What is drawn: one slot per day, and each provider's points in them.
    const std::vector<usagekit::Date>& days() const { return m_days; }
    const std::vector<usagekit::Point>& points() const { return m_points; }
    QChart* chart() const { return m_chart; }

  signals:
    void filterCleared();

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void redraw();
    void recolor();
    QString tooltip(int dayIndex) const;

    std::shared_ptr<const UsageDigest> m_digest;
    std::optional<Filter> m_filter;
    Metric m_metric = Metric::cost;
    std::vector<usagekit::Date> m_days;
    std::vector<usagekit::Point> m_points;
    QChart* m_chart;
    QChartView* m_view;
    QLabel* m_title;
    QToolButton* m_filterChip;
    QToolButton* m_costButton;
    QToolButton* m_tokensButton;
};

}  // namespace tally
