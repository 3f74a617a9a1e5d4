// The frameless popup that holds the glance panel beside the tray icon. It closes when it
// loses focus (a click elsewhere) or on Escape, and places itself under or over the icon
// when the tray tells where the icon is, else at the top right of the screen's available
// area (the D-Bus tray never tells). GUI thread only; owns its panel.
#pragma once

#include <QRect>
#include <QWidget>

namespace tally {

class AppModel;
class GlancePanel;

class GlancePopup : public QWidget {
    Q_OBJECT
  public:
    explicit GlancePopup(AppModel& model, QWidget* parent = nullptr);
    GlancePanel& panel() const { return *m_panel; }

    // Shows the popup beside `icon` (global coordinates; empty when unknown), or hides it
    // when it is showing.
    void toggle(const QRect& icon);
    void showBeside(const QRect& icon);

    // Where a popup of `size` goes for an icon at `icon` on a screen whose available area
    // is `available`.
    static QPoint placement(const QSize& size, const QRect& icon, const QRect& available);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    AppModel& m_model;
    GlancePanel* m_panel;
};

}  // namespace tally
