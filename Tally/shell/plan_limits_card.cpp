#include "shell/plan_limits_card.h"

#include "shell/app_model.h"
#include "shell/ui_text.h"

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

// Deletes every item of a layout, nested layouts and widgets included.
void clear(QLayout* layout) {
    while (QLayoutItem* item = layout->takeAt(0)) {
        if (QWidget* widget = item->widget()) widget->deleteLater();
        if (QLayout* inner = item->layout()) clear(inner);
        delete item;
    }
}

constexpr int kBarHeight = 6;

}  // namespace

QString limitAge(Date asOf, Date now) {
    const auto minutes =
        static_cast<long long>(std::trunc((now.secondsSince1970 - asOf.secondsSince1970) / 60));
    if (minutes < 1) return QStringLiteral("just now");
    if (minutes < 60) return QStringLiteral("%1 min ago").arg(minutes);
    if (minutes > 2879) return QStringLiteral("%1 days ago").arg(minutes / 1440);
    return QStringLiteral("%1 h ago").arg(minutes / 60);
}

LimitBar::LimitBar(const PlanLimits::Window& window, Date now, QWidget* parent)
    : QWidget(parent), m_use(window.usedAt(now)) {
    QFont::Weight weight = QFont::Normal;
    if (m_use >= 90)
        weight = QFont::Bold;
    else if (m_use >= 70)
        weight = QFont::DemiBold;
    m_percent = Fonts::label(toQt(wholePercent(m_use)) + QLatin1Char('%'),
                             Fonts::weighted(Fonts::caption(), weight), false, this);
    m_percent->setObjectName(QStringLiteral("percent"));
    QString reset;
    if (window.resetsAt)
        reset = *window.resetsAt <= now
                    ? QStringLiteral("reset")
                    : QStringLiteral("resets ") + toQt(PlanLimits::when(*window.resetsAt, now));
    m_reset = Fonts::label(reset, Fonts::caption(), true, this);
    m_reset->setObjectName(QStringLiteral("reset"));

    auto* row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(6);
    row->addWidget(Fonts::label(toQt(window.label), Fonts::caption(), false, this));
    row->addStretch(1);
    row->addWidget(m_reset);
    row->addWidget(m_percent);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, kBarHeight + 4);
    column->setSpacing(0);
    column->addLayout(row);
}

void LimitBar::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    // Ink, stronger as the window fills: calm at low use, plain black or white near the end.
    QColor ink = Theme::ink();
    ink.setAlphaF(m_use >= 90 ? 1.0f : m_use >= 70 ? 0.75f : 0.5f);
    Theme::paintBar(painter, QRectF(0, height() - kBarHeight - 1, width(), kBarHeight), m_use / 100,
                    ink);
}

PlanLimitsCard::PlanLimitsCard(AppModel& model, QWidget* parent)
    : SurfaceCard(parent), m_model(model) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(16, 14, 16, 14);
    column->setSpacing(8);
    auto* header = new QHBoxLayout;
    header->addWidget(Fonts::label(QStringLiteral("Plan limits"), Fonts::headline(), false, this));
    header->addStretch(1);
    auto* refresh = new QPushButton(QStringLiteral("Refresh"), this);
    refresh->setFont(Fonts::caption());
    refresh->setObjectName(QStringLiteral("refreshLimits"));
    connect(refresh, &QPushButton::clicked, &m_model, &AppModel::refreshLimits);
    header->addWidget(refresh);
    column->addLayout(header);
    column->addWidget(
        Fonts::label(QStringLiteral("how much of each subscription is used \u2014 not cost"),
                     Fonts::caption(), true, this));
    m_readings = new QVBoxLayout;
    m_readings->setSpacing(10);
    column->addLayout(m_readings);
    auto* footnote = Fonts::label(
        QStringLiteral("Claude's figures are what /usage shows in Claude Code, read with its "
                       "own sign-in. Codex's come from its last turn on this computer. Grok "
                       "and the API keys have no plan limit to show."),
        Fonts::caption(), true, this);
    footnote->setWordWrap(true);
    column->addWidget(footnote);

    connect(&m_model, &AppModel::limitsChanged, this, &PlanLimitsCard::rebuild);
    connect(&m_model, &AppModel::refreshingLimitsChanged, this, &PlanLimitsCard::rebuild);
    connect(&m_model, &AppModel::clockChanged, this, &PlanLimitsCard::rebuild);
    rebuild();
}

void PlanLimitsCard::rebuild() {
    clear(m_readings);
    const PlanLimitsStore::Snapshot& snapshot = m_model.limits();
    const Date now = m_model.clock();
    auto problemLine = [this](const std::string& text) {
        auto* line = Fonts::label(QStringLiteral("Not refreshed: ") + toQt(text), Fonts::caption(),
                                  true, this);
        line->setWordWrap(true);
        line->setObjectName(QStringLiteral("notRefreshed"));
        return line;
    };

    if (snapshot.limits.empty()) {
        auto* empty =
            Fonts::label(m_model.refreshingLimits() ? QStringLiteral("Reading the limits\u2026")
                                                    : QStringLiteral("No figures yet."),
                         Fonts::callout(), true, this);
        empty->setObjectName(QStringLiteral("limitsEmpty"));
        m_readings->addWidget(empty);
    }
    for (const PlanLimits& reading : snapshot.limits) {
        auto* block = new QVBoxLayout;
        block->setSpacing(6);
        auto* title = new QHBoxLayout;
        QString name = toQt(reading.name);
        if (reading.plan) name += QStringLiteral(" \u00B7 ") + toQt(*reading.plan);
        title->addWidget(
            Fonts::label(name, Fonts::weighted(Fonts::callout(), QFont::DemiBold), false, this));
        title->addStretch(1);
        auto* age = Fonts::label(limitAge(reading.asOf, now), Fonts::caption(), true, this);
        age->setObjectName(QStringLiteral("age"));
        title->addWidget(age);
        block->addLayout(title);
        for (const PlanLimits::Window& window : reading.windows)
            block->addWidget(new LimitBar(window, now, this));
        if (reading.note) {
            auto* note = Fonts::label(toQt(*reading.note), Fonts::caption(), true, this);
            note->setWordWrap(true);
            block->addWidget(note);
        }
        auto problem = snapshot.problems.find(reading.provider);
        if (problem != snapshot.problems.end()) block->addWidget(problemLine(problem->second));
        m_readings->addLayout(block);
    }
    // Problems of providers with no reading to stand under.
    for (const auto& [provider, text] : snapshot.problems) {
        const bool shown = std::any_of(snapshot.limits.begin(), snapshot.limits.end(),
                                       [&](const PlanLimits& r) { return r.provider == provider; });
        if (shown) continue;
        QString name = toQt(provider);
        if (!name.isEmpty()) name[0] = name[0].toUpper();
        m_readings->addWidget(
            Fonts::label(name, Fonts::weighted(Fonts::callout(), QFont::DemiBold), false, this));
        m_readings->addWidget(problemLine(text));
    }
}

}  // namespace tally
