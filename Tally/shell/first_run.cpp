#include "shell/first_run.h"

#include "core/paths.h"
#include "shell/theme.h"
#include "shell/ui_text.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <string>

namespace tally {

namespace {

// A path as the user would type it: ~/.claude/projects.
QString tilde(const std::filesystem::path& path) {
    const std::string home = usagekit::TallyPaths::home().string();
    std::string text = path.string();
    if (!home.empty() && text.rfind(home + "/", 0) == 0) text = "~" + text.substr(home.size());
    return QString::fromStdString(text);
}

QLabel* text(const QString& words, const QFont& font, bool secondary, QWidget* parent) {
    QLabel* label = Fonts::label(words, font, secondary, parent);
    label->setWordWrap(true);
    return label;
}

}  // namespace

FirstRunPanel::FirstRunPanel(QWidget* parent) : QWidget(parent) {
    using namespace usagekit::TallyPaths;
    auto* card = new SurfaceCard(this, 12);
    card->setFixedWidth(600);  // wrapped labels need a width to lay out against
    auto* column = new QVBoxLayout(card);
    column->setContentsMargins(28, 24, 28, 24);
    column->setSpacing(12);
    m_headline = text({}, Fonts::weighted(Fonts::figure(), QFont::DemiBold), false, card);
    m_headline->setObjectName(QStringLiteral("firstRunHeadline"));
    m_lead = text({}, Fonts::body(), true, card);
    column->addWidget(m_headline);
    column->addWidget(m_lead);

    auto* places = new QGridLayout;
    places->setHorizontalSpacing(18);
    places->setVerticalSpacing(6);
    const std::vector<std::pair<QString, QString>> tools = {
        {QStringLiteral("Claude Code"), tilde(claudeProjects())},
        {QStringLiteral("Codex CLI"),
         tilde(codexSessions()) + QStringLiteral(" and ") + tilde(codexArchived())},
        {QStringLiteral("Gemini CLI"), tilde(geminiHomes().front() / "tmp")},
        {QStringLiteral("Grok CLI"), tilde(grokSessions())},
        {QStringLiteral("OpenCode"), tilde(openCodeDatabase())},
        {QStringLiteral("GitHub Copilot"),
         tilde(copilotRoots().front()) + QStringLiteral(" and ") + tilde(copilotRoots().back())},
        {QStringLiteral("Cursor"), tilde(cursorDatabase())},
    };
    int row = 0;
    for (const auto& [tool, where] : tools) {
        places->addWidget(
            text(tool, Fonts::weighted(Fonts::callout(), QFont::DemiBold), false, card), row, 0,
            Qt::AlignTop);
        auto* path = text(where, Fonts::callout(), true, card);
        path->setWordWrap(false);
        path->setTextInteractionFlags(Qt::TextSelectableByMouse);
        places->addWidget(path, row, 1);
        ++row;
    }
    places->setColumnStretch(1, 1);
    column->addLayout(places);
    column->addWidget(text(QStringLiteral("Pay-per-token accounts (Anthropic, OpenAI, xAI, "
                                          "OpenRouter, DeepSeek) show up once their key is in "
                                          "Settings; Cursor's usage is read from your Cursor "
                                          "account with the sign-in it keeps above."),
                           Fonts::callout(), true, card));
    auto* settings = new QPushButton(QStringLiteral("Open Settings"), card);
    connect(settings, &QPushButton::clicked, this, &FirstRunPanel::settingsRequested);
    column->addWidget(settings, 0, Qt::AlignLeft);

    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(24, 24, 24, 24);
    // Stretches rather than an alignment: an aligned widget loses its height-for-width, and
    // the wrapped texts then overlap.
    auto* centred = new QHBoxLayout;
    centred->addStretch(1);
    centred->addWidget(card);
    centred->addStretch(1);
    outer->addStretch(1);
    outer->addLayout(centred);
    outer->addStretch(2);
    setScanning(false);
}

void FirstRunPanel::setScanning(bool scanning) {
    m_headline->setText(scanning ? QStringLiteral("Reading your logs\u2026")
                                 : QStringLiteral("Nothing tallied yet"));
    m_lead->setText(
        scanning ? QStringLiteral("Tally is looking through the places below. Usage appears here "
                                  "as soon as the scan is done.")
                 : QStringLiteral("Tally counts the tokens your coding tools use and what they "
                                  "cost, from the logs they keep on this computer. None of "
                                  "these places holds any usage yet; once you use one of the "
                                  "tools, Rescan picks it up."));
}

}  // namespace tally
