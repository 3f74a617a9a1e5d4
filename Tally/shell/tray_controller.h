// The tray icon: the flame (outline while budgets are cool, filled in the accent colour
// under pressure), the tray title as its tooltip (bold when a budget is spent), and the
// Open / Rescan / Quit menu. Activating the icon asks for the glance. GUI thread only; the
// model must outlive it.
#pragma once

#include <QObject>
#include <QSystemTrayIcon>

class QMenu;

namespace tally {

class AppModel;

class TrayController : public QObject {
    Q_OBJECT
  public:
    explicit TrayController(AppModel& model, QObject* parent = nullptr);
    ~TrayController() override;

    void show();
    // Redraws icon and tooltip from the model (also after the colour scheme changed).
    void refresh();
    QSystemTrayIcon& icon() { return m_icon; }
    QMenu& menu() const { return *m_menu; }

  signals:
    // The icon was clicked: `geometry` is where it sits, empty when the tray does not say.
    void glanceRequested(const QRect& geometry);
    void openRequested();
    void quitRequested();

  private:
    AppModel& m_model;
    QMenu* m_menu;
    QSystemTrayIcon m_icon;
    QString m_tooltip;
    bool m_filled = false;
    QRgb m_color = 0;
};

}  // namespace tally
