#include "shell/key_field.h"

#include "accounts/keychain.h"
#include "shell/off_thread.h"
#include "shell/ui_text.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <optional>

namespace tally {

using usagekit::Keychain::hint;

KeyField::KeyField(const QString& title, std::string account, const QString& placeholder,
                   QWidget* parent)
    : QWidget(parent), m_account(std::move(account)) {
    auto* titleLabel = new QLabel(title, this);
    Fonts::style(titleLabel, Fonts::callout());
    m_entry = new QLineEdit(this);
    m_entry->setEchoMode(QLineEdit::Password);
    m_entry->setPlaceholderText(placeholder);
    m_entry->setAccessibleName(title);
    m_save = new QPushButton(QStringLiteral("Save"), this);
    m_clear = new QPushButton(QStringLiteral("Clear"), this);
    m_hint = new QLabel(this);
    Fonts::style(m_hint, Fonts::caption(), true);
    m_hint->setWordWrap(true);
    m_hint->hide();

    auto* row = new QHBoxLayout;
    row->setSpacing(6);
    row->addWidget(m_entry, 1);
    row->addWidget(m_save);
    row->addWidget(m_clear);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(3);
    column->addWidget(titleLabel);
    column->addLayout(row);
    column->addWidget(m_hint);

    connect(m_save, &QPushButton::clicked, this, &KeyField::save);
    connect(m_entry, &QLineEdit::returnPressed, this, &KeyField::save);
    connect(m_clear, &QPushButton::clicked, this, &KeyField::clear);
    runOffThread(
        this, [account = m_account] { return hint(account); },
        [this](std::optional<std::string> found) { showHint(found, false); });
}

void KeyField::save() {
    const std::string draft = m_entry->text().trimmed().toStdString();
    if (draft.empty()) return;
    m_entry->clear();
    runOffThread(
        this,
        [draft, account = m_account] {
            usagekit::Keychain::set(draft, account);
            return hint(account);
        },
        [this](std::optional<std::string> found) { showHint(found, true); });
}

void KeyField::clear() {
    m_entry->clear();
    runOffThread(
        this,
        [account = m_account] {
            usagekit::Keychain::set("", account);
            return hint(account);
        },
        [this](std::optional<std::string> found) { showHint(found, false); });
}

void KeyField::showHint(const std::optional<std::string>& found, bool afterSave) {
    if (found) {
        m_hint->setText(QStringLiteral("Saved ") + QString::fromStdString(*found));
    } else if (afterSave) {
        m_hint->setText(QStringLiteral(
            "Not saved: no Secret Service answered. Start your desktop's keyring (GNOME "
            "Keyring, KWallet or KeePassXC with its Secret Service) and save again."));
    } else {
        m_hint->clear();
    }
    m_hint->setVisible(!m_hint->text().isEmpty());
    emit settled();
}

}  // namespace tally
