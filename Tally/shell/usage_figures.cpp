#include "shell/usage_figures.h"

#include "ledger/fmt.h"
#include "shell/ui_text.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace tally {

using namespace usagekit;

namespace {

const char* const kCaptions[] = {"all",    "billed", "API-equivalent",
                                 "tokens", "calls",  "cache savings"};

}  // namespace

FiguresRow::FiguresRow(QWidget* parent) : SurfaceCard(parent) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(18, 12, 18, 12);
    row->setSpacing(12);
    for (const char* caption : kCaptions) {
        auto* tile = new QVBoxLayout;
        tile->setSpacing(0);
        auto* value = new QLabel(QStringLiteral("\u2014"), this);
        value->setObjectName(QStringLiteral("figure:") + QLatin1String(caption));
        Fonts::style(value, Fonts::figure());
        auto* label = new QLabel(QLatin1String(caption), this);
        Fonts::style(label, Fonts::caption(), true);
        tile->addWidget(value);
        tile->addWidget(label);
        row->addLayout(tile, 1);
        m_values[QLatin1String(caption)] = value;
    }
}

QLabel* FiguresRow::figure(const QString& caption) const {
    auto it = m_values.find(caption);
    return it == m_values.end() ? nullptr : it->second;
}

void FiguresRow::showDigest(const UsageDigest& digest) {
    const Totals& totals = digest.totals;
    auto set = [this](const char* caption, const std::string& value, const QString& tip) {
        QLabel* label = m_values[QLatin1String(caption)];
        label->setText(toQt(value));
        label->setToolTip(tip);
    };
    set("all", Fmt::cents(totals.allUSD()),
        QStringLiteral("Billed plus API-equivalent: everything in this window, in dollars."));
    set("billed", Fmt::cents(totals.billedUSD),
        QStringLiteral("Money billed by pay-per-token accounts and API keys."));
    set("API-equivalent", Fmt::cents(totals.equivalentUSD),
        QStringLiteral("What the subscription tools' tokens would have cost at API rates. "
                       "Your seat price is what you actually pay for them."));
    set("tokens", Fmt::tokens(totals.tokens),
        toQt("input " + Fmt::n(totals.uncachedInput) + "\noutput " + Fmt::n(totals.output) +
             "\ncache read " + Fmt::n(totals.cacheRead) + "\ncache write " +
             Fmt::n(totals.cacheWrite) + "\n(reasoning " + Fmt::n(totals.reasoning) +
             ", counted in output cost, not in tokens)"));
    set("calls", Fmt::n(totals.calls), QStringLiteral("Requests made to a model."));
    set("cache savings", Fmt::cents(digest.cacheSavings),
        QStringLiteral("What the prompt cache saved against paying the full input rate for "
                       "the tokens it served."));
}

UnpricedStrip::UnpricedStrip(QWidget* parent) : QFrame(parent) {
    m_text = new QLabel(this);
    m_text->setObjectName(QStringLiteral("unpricedText"));
    m_text->setWordWrap(true);
    m_text->setTextFormat(Qt::PlainText);
    m_open = new QPushButton(QStringLiteral("Open pricing.json"), this);
    m_open->setObjectName(QStringLiteral("openPricing"));
    connect(m_open, &QPushButton::clicked, this, &UnpricedStrip::openPricingRequested);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(14, 8, 10, 8);
    row->addWidget(m_text, 1);
    row->addWidget(m_open, 0, Qt::AlignVCenter);
    hide();
}

void UnpricedStrip::showDigest(const UsageDigest& digest) {
    const auto unpriced = digest.unpriced();
    setVisible(!unpriced.empty());
    if (unpriced.empty()) return;
    QStringList parts;
    for (const auto& model : unpriced)
        parts << QStringLiteral("%1 (%2 %3, %4 tokens)")
                     .arg(toQt(model.model), toQt(Fmt::n(model.records)),
                          model.records == 1 ? QStringLiteral("record") : QStringLiteral("records"),
                          toQt(Fmt::tokens(model.tokens)));
    m_text->setText(
        QStringLiteral("No rate for %1, so %2 as $0 here: %3. Give %4 a rate in pricing.json.")
            .arg(unpriced.size() == 1 ? QStringLiteral("one model")
                                      : QStringLiteral("%1 models").arg(unpriced.size()),
                 unpriced.size() == 1 ? QStringLiteral("it counts") : QStringLiteral("they count"),
                 parts.join(QStringLiteral(", ")),
                 unpriced.size() == 1 ? QStringLiteral("it") : QStringLiteral("them")));
}

void UnpricedStrip::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor tint = Theme::accent();
    tint.setAlphaF(Theme::scheme() == Theme::Scheme::dark ? 0.16f : 0.11f);
    QColor edge = Theme::accent();
    edge.setAlphaF(0.45f);
    painter.setBrush(tint);
    painter.setPen(QPen(edge, 1));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
}

}  // namespace tally
