// The small cards beside the chart: seat comparisons (the month's API-equivalent next to
// the seat price, "3.2× your seat"), account balances, and the ledger's problems exactly
// as worded. Each hides itself when it has nothing to show. GUI thread only.
#pragma once

#include "accounts/balances.h"
#include "shell/app_model.h"
#include "shell/theme.h"

#include <string>
#include <vector>

class QLabel;
class QVBoxLayout;

namespace tally {

// A titled card whose rows are replaced whole.
class ListCard : public SurfaceCard {
    Q_OBJECT
  public:
    ListCard(const QString& title, QWidget* parent = nullptr);
    QVBoxLayout* rows() const { return m_rows; }
    void clearRows();

  private:
    QVBoxLayout* m_rows;
};

class SeatCard : public ListCard {
    Q_OBJECT
  public:
    explicit SeatCard(QWidget* parent = nullptr);
    void showComparisons(const std::vector<AppModel::SeatComparison>& comparisons);
};

class BalancesCard : public ListCard {
    Q_OBJECT
  public:
    explicit BalancesCard(QWidget* parent = nullptr);
    void showBalances(const std::vector<usagekit::ProviderBalance>& balances);
};

class ProblemsCard : public ListCard {
    Q_OBJECT
  public:
    explicit ProblemsCard(QWidget* parent = nullptr);
    void showProblems(const std::vector<std::string>& problems);
};

}  // namespace tally
