#ifndef GUIMESSAGESDOUBLE_H
#define GUIMESSAGESDOUBLE_H

#include "guimessages.h"

#include <QList>
#include <QString>

// Stands in for the message boxes while it lives: records every message and
// answers from a queue of preset buttons, then with the default answer (the
// box's default button, else its first button).
class GuiMessagesDouble : public GuiMessages {
public:
    struct Message {
        Kind kind;
        QString title;
        QString text;
    };
    GuiMessagesDouble() : before(GuiMessages::set(this)) {}
    ~GuiMessagesDouble() override { GuiMessages::set(before); }
    GuiMessagesDouble(const GuiMessagesDouble&) = delete;
    GuiMessagesDouble& operator=(const GuiMessagesDouble&) = delete;
    QMessageBox::StandardButton ask(Kind kind, QWidget*, const QString& title, const QString& text,
                                    QMessageBox::StandardButtons buttons,
                                    QMessageBox::StandardButton defaultButton) override {
        messages.append(Message{kind, title, text});
        if (!answers.isEmpty())
            return answers.takeFirst();
        if (defaultButton != QMessageBox::NoButton)
            return defaultButton;
        for (unsigned int b = QMessageBox::FirstButton; b <= QMessageBox::LastButton; b <<= 1) {
            if (buttons & b)
                return QMessageBox::StandardButton(b);
        }
        return QMessageBox::NoButton;
    }
    // "title: text" of each message, in order; take() also forgets them.
    QStringList texts() const {
        QStringList list;
        for (const Message& m : messages)
            list << m.title + ": " + m.text;
        return list;
    }
    QStringList take() {
        QStringList list = texts();
        messages.clear();
        return list;
    }
    // Forgets what was asked, and the answers not used yet.
    void clear() {
        messages.clear();
        answers.clear();
        fileAsks.clear();
        fileAnswers.clear();
    }
    // File dialogs: each one asked is recorded; the answers are taken in
    // order (a name and the filter chosen, empty to keep the preselected
    // one); with none left the dialog counts as cancelled.
    struct FileAsk {
        FileKind kind;
        QString caption;
        QString path;
        QString filter;
        QString selectedFilter; // the one preselected
    };
    struct FileAnswer {
        QString name;
        QString filter;
    };
    QString fileDialog(FileKind kind, QWidget*, const QString& caption, const QString& path,
                       const QString& filter, QString* selectedFilter) override {
        fileAsks.append(
            FileAsk{kind, caption, path, filter, selectedFilter ? *selectedFilter : QString()});
        if (fileAnswers.isEmpty())
            return QString();
        FileAnswer a = fileAnswers.takeFirst();
        if (selectedFilter && !a.filter.isEmpty())
            *selectedFilter = a.filter;
        return a.name;
    }
    QList<Message> messages;
    QList<QMessageBox::StandardButton> answers;
    QList<FileAsk> fileAsks;
    QList<FileAnswer> fileAnswers;

private:
    GuiMessages* before;
};

#endif
