#include "shell/dashboard_window.h"

#include "shell/app_model.h"
#include "shell/theme.h"

#include <QAction>
#include <QEvent>
#include <QLabel>
#include <QVBoxLayout>

namespace tally {

DashboardWindow::DashboardWindow(AppModel& model, QWidget* top, QWidget* parent)
    : QMainWindow(parent), m_model(model) {
    setObjectName(QStringLiteral("dashboard"));
    setWindowTitle(QStringLiteral("Tally"));
    setMinimumSize(kMinimumSize);
    resize(kMinimumSize);

    auto* central = new QWidget(this);
    auto* column = new QVBoxLayout(central);
    column->setContentsMargins(24, 24, 24, 24);
    column->setSpacing(16);
    if (top) column->addWidget(top, 0, Qt::AlignLeft);
    m_title = new QLabel(central);
    QFont font = m_title->font();
    font.setPixelSize(28);
    font.setWeight(QFont::DemiBold);
    m_title->setFont(font);
    m_title->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_problems = new QLabel(central);
    m_problems->setWordWrap(true);
    m_problems->setTextInteractionFlags(Qt::TextSelectableByMouse);
    column->addWidget(m_title);
    column->addWidget(m_problems);
    column->addStretch();
    setCentralWidget(central);

    auto* close = new QAction(this);
    close->setShortcut(QKeySequence::Close);
    connect(close, &QAction::triggered, this, &QWidget::close);
    addAction(close);

    for (auto signal : {&AppModel::ledgerChanged, &AppModel::clockChanged})
        connect(&m_model, signal, this, &DashboardWindow::refresh);
    paintPaper();
    refresh();
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

void DashboardWindow::refresh() {
    m_title->setText(QString::fromStdString(m_model.menuTitle()));
    QStringList problems;
    for (const std::string& problem : m_model.ledger()->problems)
        problems << QString::fromStdString(problem);
    m_problems->setText(problems.join(QLatin1Char('\n')));
    m_problems->setVisible(!problems.isEmpty());
}

}  // namespace tally
