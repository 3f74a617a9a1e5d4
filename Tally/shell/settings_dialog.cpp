#include "shell/settings_dialog.h"

#include "accounts/anthropic_admin.h"
#include "accounts/balances.h"
#include "accounts/keychain.h"
#include "accounts/openai_usage.h"
#include "core/provider.h"
#include "ledger/fmt.h"
#include "limits/spend_budget.h"
#include "shell/app_model.h"
#include "shell/autostart.h"
#include "shell/key_field.h"
#include "shell/off_thread.h"
#include "shell/ui_text.h"

#include <QCheckBox>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QStyle>
#include <QVBoxLayout>

namespace tally {

using namespace usagekit;

namespace {

QLabel* text(const QString& words, const QFont& font, bool secondary, QWidget* parent) {
    QLabel* label = Fonts::label(words, font, secondary, parent);
    label->setWordWrap(true);
    return label;
}

QVBoxLayout* section(QWidget* widget, const QString& title) {
    auto* column = new QVBoxLayout(widget);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(8);
    column->addWidget(text(title, Fonts::headline(), false, widget));
    return column;
}

// Whether a Secret Service runs on the session bus or can be started by it.
bool secretServiceReachable() {
    QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    if (!bus) return false;
    const QString name = QStringLiteral("org.freedesktop.secrets");
    return bus->isServiceRegistered(name).value() ||
           bus->activatableServiceNames().value().contains(name);
}

const char* const kSeatOrder[] = {"claude-code", "codex-cli",    "grok-cli",
                                  "gemini-cli",  "cursor-agent", "github-copilot"};

}  // namespace

SettingsDialog::SettingsDialog(AppModel& model, QWidget* parent) : QDialog(parent), m_model(model) {
    setWindowTitle(QStringLiteral("Settings"));
    setFixedSize(520, 560);

    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(20, 16, 20, 16);
    column->setSpacing(22);
    // What the toggle shows is what is on disk: read when the dialog opens, and again
    // after every change (a write that failed leaves it as it was).
    m_startAtLogin = new QCheckBox(QStringLiteral("Start Tally when I log in"), content);
    m_startAtLogin->setChecked(Autostart::isEnabled());
    connect(m_startAtLogin, &QCheckBox::toggled, this, [this](bool on) {
        Autostart::setEnabled(on);
        const QSignalBlocker quiet(m_startAtLogin);
        m_startAtLogin->setChecked(Autostart::isEnabled());
    });
    column->addWidget(m_startAtLogin);
    column->addWidget(keysSection());
    column->addWidget(seatsSection());
    column->addWidget(budgetsSection());
    column->addStretch(1);

    auto* scroll = new QScrollArea(this);
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* buttons = new QDialogButtonBox(this);
    QPushButton* done = buttons->addButton(QStringLiteral("Done"), QDialogButtonBox::AcceptRole);
    done->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 12);
    outer->addWidget(scroll, 1);
    auto* buttonRow = new QHBoxLayout;
    buttonRow->setContentsMargins(20, 0, 20, 0);
    buttonRow->addWidget(buttons);
    outer->addLayout(buttonRow);

    connect(&m_model, &AppModel::budgetsChanged, this, &SettingsDialog::rebuildBudgets);
    connect(&m_model, &AppModel::settingsChanged, this,
            [this] { m_notify->setChecked(m_model.settings().notifyBudgets); });
}

QWidget* SettingsDialog::keysSection() {
    auto* widget = new QWidget;
    QVBoxLayout* column = section(widget, QStringLiteral("Provider keys"));
    column->addWidget(text(QStringLiteral("Optional. Local logs need none of these."),
                           Fonts::callout(), true, widget));
    m_noSecretService = text(
        QStringLiteral("No Secret Service is running, so keys cannot be saved here. Start your "
                       "desktop's keyring (GNOME Keyring, KWallet or KeePassXC with its Secret "
                       "Service), or give Tally its keys in the environment (%1 and the like).")
            .arg(toQt(Keychain::environmentName(AnthropicAdminSource::keyAccount))),
        Fonts::caption(), false, widget);
    m_noSecretService->hide();
    column->addWidget(m_noSecretService);
    runOffThread(this, secretServiceReachable,
                 [this](bool reachable) { m_noSecretService->setVisible(!reachable); });

    struct Key {
        const char* title;
        const char* account;
        const char* placeholder;
    };
    const Key keys[] = {
        {"Anthropic admin key", AnthropicAdminSource::keyAccount, "sk-ant-admin01-\u2026"},
        {"OpenAI admin key", OpenAIUsageSource::keyAccount, "sk-admin-\u2026"},
        {"xAI management key", XAIBillingSource::keyAccount, "xai-\u2026"},
        {"xAI team id", XAIBillingSource::teamAccount, "Team id from the xAI console"},
        {"OpenRouter management key", OpenRouterSource::keyAccount, "sk-or-v1-\u2026"},
        {"DeepSeek API key", DeepSeekSource::keyAccount, "sk-\u2026"},
    };
    for (const Key& key : keys) {
        auto* field = new KeyField(QString::fromUtf8(key.title), key.account,
                                   QString::fromUtf8(key.placeholder), widget);
        m_keys.push_back(field);
        column->addWidget(field);
    }
    column->addWidget(text(
        QStringLiteral("Admin and management keys read the provider\u2019s own report. A normal "
                       "inference key is refused, except DeepSeek, whose balance endpoint takes "
                       "the API key. Nothing here is written to a file."),
        Fonts::caption(), true, widget));
    return widget;
}

QWidget* SettingsDialog::seatsSection() {
    auto* widget = new QWidget;
    QVBoxLayout* column = section(widget, QStringLiteral("Seat prices"));
    column->addWidget(
        text(QStringLiteral("What you pay per month, so the API-equivalent has something to sit "
                            "next to"),
             Fonts::callout(), true, widget));
    for (const char* id : kSeatOrder) {
        auto* row = new QHBoxLayout;
        row->addWidget(new QLabel(toQt(Provider(id).name()), widget), 1);
        auto* price = new QDoubleSpinBox(widget);
        price->setRange(0, 100'000);
        price->setDecimals(2);
        price->setButtonSymbols(QAbstractSpinBox::NoButtons);
        price->setAlignment(Qt::AlignRight);
        price->setFixedWidth(90);
        auto seat = m_model.settings().seatPrices.find(id);
        price->setValue(seat == m_model.settings().seatPrices.end() ? 0 : seat->second);
        price->setAccessibleName(toQt(Provider(id).name()));
        connect(price, &QDoubleSpinBox::valueChanged, this,
                [this, id](double value) { setSeat(id, value); });
        m_seats[id] = price;
        row->addWidget(price);
        row->addWidget(text(QStringLiteral("USD / month"), Fonts::caption(), true, widget));
        column->addLayout(row);
    }
    column->addWidget(
        text(QStringLiteral("Claude Max is $200 and ChatGPT Plus is $20 at the list price. Set a "
                            "seat to 0 to hide the comparison."),
             Fonts::caption(), true, widget));
    return widget;
}

QWidget* SettingsDialog::budgetsSection() {
    auto* widget = new QWidget;
    QVBoxLayout* column = section(widget, QStringLiteral("Budgets"));
    column->addWidget(
        text(QStringLiteral("A notification at 80% and again at 100%. The cap watches the same "
                            "number as the menu bar."),
             Fonts::callout(), true, widget));
    m_notify = new QCheckBox(QStringLiteral("Notify"), widget);
    m_notify->setChecked(m_model.settings().notifyBudgets);
    connect(m_notify, &QCheckBox::toggled, this, &SettingsDialog::setNotify);
    column->addWidget(m_notify);
    m_noBudgets = text(QStringLiteral("No caps yet. A monthly cap on everything is the one most "
                                      "people want."),
                       Fonts::callout(), true, widget);
    column->addWidget(m_noBudgets);
    m_budgetRows = new QVBoxLayout;
    m_budgetRows->setSpacing(4);
    column->addLayout(m_budgetRows);
    auto* adds = new QHBoxLayout;
    m_addMonthly = new QPushButton(QStringLiteral("Monthly cap"), widget);
    m_addDaily = new QPushButton(QStringLiteral("Daily cap"), widget);
    connect(m_addMonthly, &QPushButton::clicked, this, [this] { addBudget(true); });
    connect(m_addDaily, &QPushButton::clicked, this, [this] { addBudget(false); });
    adds->addWidget(m_addMonthly);
    adds->addWidget(m_addDaily);
    adds->addStretch(1);
    column->addLayout(adds);
    rebuildBudgets();
    return widget;
}

void SettingsDialog::rebuildBudgets() {
    while (QLayoutItem* item = m_budgetRows->takeAt(0)) {
        if (QWidget* row = item->widget()) row->deleteLater();
        delete item;
    }
    const auto& budgets = m_model.budgets();
    m_noBudgets->setVisible(budgets.empty());
    for (const SpendBudget& budget : budgets) {
        auto* row = new QWidget;
        row->setObjectName(toQt("budget:" + budget.id));
        auto* line = new QHBoxLayout(row);
        line->setContentsMargins(0, 0, 0, 0);
        auto* name = new QLabel(toQt(budget.label), row);
        name->setTextFormat(Qt::PlainText);
        line->addWidget(name);
        auto* cap = new QLabel(
            toQt(Fmt::cents(budget.capUSD) + " / " + SpendBudget::rawValue(budget.period)), row);
        cap->setObjectName(QStringLiteral("cap"));
        Fonts::style(cap, Fonts::body(), true);
        line->addWidget(cap);
        line->addStretch(1);
        auto* remove = new QPushButton(row);
        remove->setObjectName(QStringLiteral("remove"));
        remove->setIcon(QIcon::fromTheme(QStringLiteral("edit-delete"),
                                         style()->standardIcon(QStyle::SP_TrashIcon)));
        remove->setFlat(true);
        remove->setToolTip(QStringLiteral("Remove this cap"));
        remove->setAccessibleName(QStringLiteral("Remove ") + toQt(budget.label));
        QPalette red = remove->palette();
        red.setColor(QPalette::ButtonText, QColor(0xd7, 0x3a, 0x31));
        remove->setPalette(red);
        connect(remove, &QPushButton::clicked, this, [this, id = budget.id] { removeBudget(id); });
        line->addWidget(remove);
        m_budgetRows->addWidget(row);
    }
}

std::vector<QPushButton*> SettingsDialog::removeButtons() const {
    std::vector<QPushButton*> buttons;
    for (int i = 0; i < m_budgetRows->count(); ++i)
        if (QWidget* row = m_budgetRows->itemAt(i)->widget())
            buttons.push_back(row->findChild<QPushButton*>(QStringLiteral("remove")));
    return buttons;
}

KeyField* SettingsDialog::keyField(const std::string& account) const {
    for (KeyField* field : m_keys)
        if (field->account() == account) return field;
    return nullptr;
}

QDoubleSpinBox* SettingsDialog::seatField(const std::string& providerID) const {
    auto it = m_seats.find(providerID);
    return it == m_seats.end() ? nullptr : it->second;
}

void SettingsDialog::setSeat(const std::string& providerID, double price) {
    TallySettings settings = m_model.settings();
    settings.seatPrices[providerID] = price;
    m_model.setSettings(settings);
    settings.save();
}

void SettingsDialog::setNotify(bool notify) {
    TallySettings settings = m_model.settings();
    if (settings.notifyBudgets == notify) return;
    settings.notifyBudgets = notify;
    m_model.setSettings(settings);
    settings.save();
}

void SettingsDialog::addBudget(bool monthly) {
    std::vector<SpendBudget> budgets = m_model.budgets();
    budgets.push_back(
        SpendBudget::newBudget(monthly ? SpendBudget::Period::month : SpendBudget::Period::day));
    m_model.setBudgets(budgets);
    SpendBudget::save(budgets);
    m_model.noteBudgets();
}

void SettingsDialog::removeBudget(const std::string& id) {
    std::vector<SpendBudget> budgets = m_model.budgets();
    std::erase_if(budgets, [&](const SpendBudget& budget) { return budget.id == id; });
    m_model.setBudgets(budgets);
    SpendBudget::save(budgets);
    m_model.noteBudgets();
}

}  // namespace tally
