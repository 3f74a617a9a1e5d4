#include "shell/dashboard_window.h"

#include "shell/app_model.h"
#include "shell/theme.h"
#include "shell/usage_view.h"

#include <QAction>
#include <QEvent>
#include <QVBoxLayout>

namespace tally {

DashboardWindow::DashboardWindow(AppModel& model, Dialogs& dialogs, QWidget* top, QWidget* parent)
    : QMainWindow(parent), m_model(model), m_view(new UsageView(model, dialogs)) {
    setObjectName(QStringLiteral("dashboard"));
    setWindowTitle(QStringLiteral("Tally"));
    setMinimumSize(kMinimumSize);
    resize(1120, 760);

    if (top) {
        auto* central = new QWidget(this);
        auto* column = new QVBoxLayout(central);
        column->setContentsMargins(0, 0, 0, 0);
        column->setSpacing(0);
        column->addWidget(top, 0, Qt::AlignLeft);
        column->addWidget(m_view, 1);
        setCentralWidget(central);
    } else {
        setCentralWidget(m_view);
    }

    auto* close = new QAction(this);
    close->setShortcut(QKeySequence::Close);
    connect(close, &QAction::triggered, this, &QWidget::close);
    addAction(close);
    paintPaper();
}

void DashboardWindow::present() {
    show();
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    raise();
    activateWindow();
}

void DashboardWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    m_model.start();
}

void DashboardWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) paintPaper();
}

void DashboardWindow::paintPaper() {
    QPalette palette = this->palette();
    if (palette.color(QPalette::Window) == Theme::paper()) return;
    palette.setColor(QPalette::Window, Theme::paper());
    setPalette(palette);
    setAutoFillBackground(true);
}

}  // namespace tally
