// The figures row at the top of the usage view (all, billed, API-equivalent, tokens,
// calls, cache savings, each with a tooltip saying what it counts) and the strip that
// names the window's models without a rate, so they are never a silent $0. Both show a
// UsageDigest; neither computes a figure. GUI thread only.
#pragma once

#include "shell/models/usage_digest.h"
#include "shell/theme.h"

#include <QFrame>
#include <QString>

#include <map>

class QLabel;
class QPushButton;

namespace tally {

class FiguresRow : public SurfaceCard {
    Q_OBJECT
  public:
    explicit FiguresRow(QWidget* parent = nullptr);
    void showDigest(const UsageDigest& digest);
    // The value label above `caption` ("all", "billed", "API-equivalent", "tokens",
    // "calls", "cache savings").
    QLabel* figure(const QString& caption) const;

  private:
    std::map<QString, QLabel*> m_values;
};

class UnpricedStrip : public QFrame {
    Q_OBJECT
  public:
    explicit UnpricedStrip(QWidget* parent = nullptr);
    // Hides itself when the window has no unpriced model.
    void showDigest(const UsageDigest& digest);
    QLabel* text() const { return m_text; }

  signals:
    void openPricingRequested();

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QLabel* m_text;
    QPushButton* m_open;
};

}  // namespace tally
