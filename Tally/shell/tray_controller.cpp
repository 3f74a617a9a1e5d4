#include "shell/tray_controller.h"

#include "shell/app_model.h"
#include "shell/theme.h"

#include <QMenu>

namespace tally {

TrayController::TrayController(AppModel& model, QObject* parent)
    : QObject(parent), m_model(model), m_menu(new QMenu) {
    m_menu->addAction(QStringLiteral("Open"), this, &TrayController::openRequested);
    m_menu->addAction(QStringLiteral("Rescan"), &m_model, &AppModel::scan);
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Quit"), this, &TrayController::quitRequested);
    m_icon.setContextMenu(m_menu);

    connect(&m_icon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
                    emit glanceRequested(m_icon.geometry());
            });
    for (auto signal :
         {&AppModel::ledgerChanged, &AppModel::budgetsChanged, &AppModel::clockChanged})
        connect(&m_model, signal, this, &TrayController::refresh);
    refresh();
}

TrayController::~TrayController() {
    delete m_menu;
}

void TrayController::show() {
    m_icon.show();
}

void TrayController::refresh() {
    const AppModel::Heat heat = m_model.heat();
    const bool filled = heat != AppModel::Heat::cool;
    const QColor color = filled ? Theme::accent() : Theme::ink();
    // Setting the same icon again would make the tray host fetch it again.
    if (filled != m_filled || color.rgba() != m_color || m_icon.icon().isNull()) {
        m_filled = filled;
        m_color = color.rgba();
        m_icon.setIcon(Theme::flame(filled, color));
    }
    const QString title = QString::fromStdString(m_model.menuTitle());
    const QString tooltip =
        heat == AppModel::Heat::hot ? QStringLiteral("<b>%1</b>").arg(title) : title;
    if (tooltip != m_tooltip) {
        m_tooltip = tooltip;
        m_icon.setToolTip(tooltip);
    }
}

}  // namespace tally
