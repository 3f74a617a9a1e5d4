// The usage window broken down by provider, model, project, session and kind: one tab per
// breakdown over a sortable table, and a filter field that narrows the rows by label.
// Selecting a provider or a project row asks for the chart to show only it. Owns its five
// models and the proxy in front of the table. GUI thread only.
#pragma once

#include "shell/daily_chart.h"
#include "shell/models/breakdown_model.h"
#include "shell/theme.h"

#include <QSortFilterProxyModel>

#include <array>
#include <optional>

class QLineEdit;
class QTabBar;
class QTableView;

namespace tally {

class BreakdownPanel : public SurfaceCard {
    Q_OBJECT
  public:
    explicit BreakdownPanel(QWidget* parent = nullptr);

    void showDigest(const UsageDigest& digest);
    void showBreakdown(BreakdownModel::Kind kind);
    BreakdownModel::Kind shownKind() const;

    BreakdownModel* model(BreakdownModel::Kind kind) const;
    QSortFilterProxyModel* proxy() const { return m_proxy; }
    QTableView* table() const { return m_table; }
    QLineEdit* filterField() const { return m_filter; }
    void clearSelection();

  signals:
    // A provider or project row was selected (a filter), or the selection went away.
    void chartFilterChanged(std::optional<DailyChart::Filter> filter);

  private:
    void selectionChanged();

    std::array<BreakdownModel*, 5> m_models;
    QSortFilterProxyModel* m_proxy;
    QTabBar* m_tabs;
    QLineEdit* m_filter;
    QTableView* m_table;
};

}  // namespace tally
