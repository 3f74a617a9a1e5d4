#include "shell/glance_panel.h"

#include "shell/app_model.h"
#include "shell/busy_indicator.h"
#include "shell/theme.h"
#include "shell/ui_text.h"

#include "ledger/fmt.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace tally {

using namespace usagekit;

namespace {

// A thin bar for spent ÷ cap.
class BudgetBar : public QWidget {
  public:
    BudgetBar(double fraction, bool pressed, QWidget* parent)
        : QWidget(parent), m_fraction(fraction), m_pressed(pressed) {
        setFixedHeight(4);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        Theme::paintBar(painter, QRectF(rect()), m_fraction,
                        m_pressed ? Theme::accent() : Theme::ink());
    }

  private:
    double m_fraction;
    bool m_pressed;
};

void setInk(QLabel* label, const QColor& color) {
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, color);
    label->setPalette(palette);
}

}  // namespace

GlancePanel::GlancePanel(AppModel& model, QWidget* parent) : QWidget(parent), m_model(model) {
    setFixedWidth(kWidth);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(kPadding, kPadding, kPadding, kPadding);
    column->setSpacing(12);

    auto* header = new QHBoxLayout;
    auto* name = new QLabel(QStringLiteral("Tally"), this);
    QFont bold = name->font();
    bold.setWeight(QFont::Bold);
    name->setFont(bold);
    header->addWidget(name);
    header->addStretch();
    m_spinner = new BusyIndicator(this);
    header->addWidget(m_spinner);
    column->addLayout(header);

    auto* figures = new QHBoxLayout;
    figures->setSpacing(24);
    auto figure = [&](QLabel*& value, const QString& captionText) {
        auto* box = new QVBoxLayout;
        box->setSpacing(0);
        value = new QLabel(this);
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        box->addWidget(value);
        box->addWidget(Fonts::label(captionText, Fonts::caption(), true, this));
        figures->addLayout(box);
    };
    figure(m_today, QStringLiteral("today"));
    figure(m_month, QStringLiteral("this month"));
    figures->addStretch();
    column->addLayout(figures);

    m_budgetRows = new QVBoxLayout;
    m_budgetRows->setSpacing(8);
    column->addLayout(m_budgetRows);

    m_limits = Fonts::label(QString(), Fonts::caption(), true, this);
    m_limits->setWordWrap(true);
    column->addWidget(m_limits);

    auto* buttons = new QHBoxLayout;
    m_open = new QPushButton(QStringLiteral("Open"), this);
    m_rescan = new QPushButton(QStringLiteral("Rescan"), this);
    m_quit = new QPushButton(QStringLiteral("Quit"), this);
    buttons->addWidget(m_open);
    buttons->addWidget(m_rescan);
    buttons->addStretch();
    buttons->addWidget(m_quit);
    column->addLayout(buttons);
    m_open->setDefault(true);

    connect(m_open, &QPushButton::clicked, this, &GlancePanel::openRequested);
    connect(m_rescan, &QPushButton::clicked, &m_model, &AppModel::scan);
    connect(m_quit, &QPushButton::clicked, this, &GlancePanel::quitRequested);
    for (auto signal : {&AppModel::ledgerChanged, &AppModel::budgetsChanged,
                        &AppModel::limitsChanged, &AppModel::clockChanged})
        connect(&m_model, signal, this, &GlancePanel::refresh);
    connect(&m_model, &AppModel::scanningChanged, this, &GlancePanel::refresh);
    refresh();
}

QString GlancePanel::todayText() const {
    return m_today->text();
}
QString GlancePanel::monthText() const {
    return m_month->text();
}
QString GlancePanel::limitText() const {
    return m_limits->isHidden() ? QString() : m_limits->text();
}

void GlancePanel::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) refresh();
}

void GlancePanel::refresh() {
    m_spinner->setRunning(m_model.scanning());
    m_today->setText(toQt(Fmt::cents(m_model.totals(SpendBudget::Period::day).allUSD())));
    m_month->setText(toQt(Fmt::cents(m_model.totals(SpendBudget::Period::month).allUSD())));
    styleFigures();
    rebuildBudgets();

    QStringList lines;
    for (const PlanLimits& plan : m_model.limits().limits)
        lines << toQt(plan.line(m_model.clock()));
    m_limits->setText(lines.join(QLatin1Char('\n')));
    m_limits->setVisible(!lines.isEmpty());
}

void GlancePanel::styleFigures() {
    const AppModel::Heat heat = m_model.heat();
    for (QLabel* value : {m_today, m_month}) {
        QFont font = value->font();
        font.setPixelSize(22);
        font.setWeight(heat == AppModel::Heat::hot ? QFont::Bold : QFont::DemiBold);
        value->setFont(font);
        setInk(value, heat == AppModel::Heat::cool ? Theme::ink() : Theme::accent());
    }
}

void GlancePanel::rebuildBudgets() {
    while (QLayoutItem* item = m_budgetRows->takeAt(0)) {
        if (QWidget* widget = item->widget()) widget->deleteLater();
        delete item;
    }
    for (const BudgetReading& reading : m_model.budgetReadings()) {
        const double cap = reading.budget.capUSD;
        const bool pressed = cap > 0 && reading.spentUSD / cap >= 0.8;
        auto* row = new QWidget(this);
        auto* rowColumn = new QVBoxLayout(row);
        rowColumn->setContentsMargins(0, 0, 0, 0);
        rowColumn->setSpacing(4);
        auto* line = new QHBoxLayout;
        QLabel* label = Fonts::label(toQt(reading.budget.label), Fonts::caption(), false, row);
        QLabel* amount = Fonts::label(
            toQt(Fmt::cents(reading.spentUSD) + " / " + Fmt::cents(cap)),
            Fonts::weighted(Fonts::caption(), pressed ? QFont::DemiBold : QFont::Normal), false,
            row);
        amount->setObjectName(QStringLiteral("budgetAmount"));
        line->addWidget(label);
        line->addStretch();
        line->addWidget(amount);
        rowColumn->addLayout(line);
        rowColumn->addWidget(new BudgetBar(cap > 0 ? reading.spentUSD / cap : 0, pressed, row));
        m_budgetRows->addWidget(row);
    }
}

}  // namespace tally
