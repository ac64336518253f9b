#ifndef GUIMESSAGESDOUBLE_H
#define GUIMESSAGESDOUBLE_H

#include "guimessages.h"

#include <QList>
#include <QString>

// Stands in for the message boxes while it lives: records every message and
// answers from a queue of preset buttons, then with the default answer (the
// box's default button, else its first button).
//
//   GuiMessagesDouble messages;
//   messages.answers << QMessageBox::Yes;
//   ... the code under test asks ...
//   QCOMPARE(messages.texts(), QStringList{"Are you sure ?"});
class GuiMessagesDouble : public GuiMessages {
public:
    struct Message {
        Kind kind;
        QString title;
        QString text;
        QMessageBox::StandardButtons buttons;
    };

    GuiMessagesDouble() : before(GuiMessages::set(this)) {}
    ~GuiMessagesDouble() override { GuiMessages::set(before); }
    GuiMessagesDouble(const GuiMessagesDouble&) = delete;
    GuiMessagesDouble& operator=(const GuiMessagesDouble&) = delete;

    QMessageBox::StandardButton ask(Kind kind, QWidget*, const QString& title, const QString& text,
                                    QMessageBox::StandardButtons buttons,
                                    QMessageBox::StandardButton defaultButton) override {
        messages.append(Message{kind, title, text, buttons});
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

    // "title: text" of each message, in order.
    QStringList texts() const {
        QStringList list;
        for (const Message& m : messages)
            list << m.title + ": " + m.text;
        return list;
    }
    void clear() { messages.clear(); }

    QList<Message> messages;
    QList<QMessageBox::StandardButton> answers;

private:
    GuiMessages* before;
};

#endif
