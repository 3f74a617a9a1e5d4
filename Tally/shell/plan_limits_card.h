// The dashboard's card of subscription plan limits: one LimitBar per usage window of each
// reading in the model's snapshot, the reading's age, why a provider was not refreshed, a
// Refresh button and where the figures come from. Rebuilt from the model whenever its
// limits, its refreshing flag or its clock change. GUI thread only; the model must outlive
// the card.
#pragma once

// app_model.h first: UsageKit headers must come before Qt defines `slots`.
#include "core/date.h"
#include "limits/plan_limits.h"
#include "shell/app_model.h"
#include "shell/theme.h"

#include <QString>
#include <QWidget>

class QLabel;
class QVBoxLayout;

namespace tally {

// The card's own age text, deliberately coarser than Fmt::ago: "just now", "12 min ago",
// "47 h ago", then "2 days ago" from 2880 whole minutes on.
QString limitAge(usagekit::Date asOf, usagekit::Date now);

// One window: its label, the use in percent (bold from 90, semibold from 70, on the
// unrounded value), when it resets, and a bar filled to the use. A window whose reset time
// has passed counts as 0% and says "reset".
class LimitBar : public QWidget {
    Q_OBJECT
  public:
    LimitBar(const usagekit::PlanLimits::Window& window, usagekit::Date now,
             QWidget* parent = nullptr);
    double effectiveUse() const { return m_use; }
    QLabel* percentLabel() const { return m_percent; }
    QLabel* resetLabel() const { return m_reset; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    double m_use;
    QLabel* m_percent;
    QLabel* m_reset;
};

class PlanLimitsCard : public SurfaceCard {
    Q_OBJECT
  public:
    explicit PlanLimitsCard(AppModel& model, QWidget* parent = nullptr);

  private:
    void rebuild();

    AppModel& m_model;
    QVBoxLayout* m_readings;
};

}  // namespace tally
