// One provider key in Settings: a secure entry, Save and Clear, and "Saved " with the
// key's masked hint once the Secret Service holds it. Every Keychain call runs off the GUI
// thread; the key itself is never shown, logged or written to a file. When a save does not
// land (no Secret Service, or a locked one) the field says so. GUI thread only.
#pragma once

#include <QString>
#include <QWidget>

#include <string>

class QLabel;
class QLineEdit;
class QPushButton;

namespace tally {

class KeyField : public QWidget {
    Q_OBJECT
  public:
    KeyField(const QString& title, std::string account, const QString& placeholder,
             QWidget* parent = nullptr);

    const std::string& account() const { return m_account; }
    QLineEdit* entry() const { return m_entry; }
    QLabel* hintLabel() const { return m_hint; }
    // Stores the draft (as Save does).
    void save();
    void clear();

  signals:
    // A Keychain call came back and the hint label shows its outcome.
    void settled();

  private:
    void showHint(const std::optional<std::string>& hint, bool afterSave);

    std::string m_account;
    QLineEdit* m_entry;
    QPushButton* m_save;
    QPushButton* m_clear;
    QLabel* m_hint;
};

}  // namespace tally
