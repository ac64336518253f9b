#ifndef GUIMESSAGES_H
#define GUIMESSAGES_H

#include <QMessageBox>
#include <QString>

// Every message box of the program goes through here. The default instance
// shows modal QMessageBox boxes; tests install their own instance that
// records what was asked and answers without showing anything.
//
//   GuiMessages::critical(this, "Tavro-gui - Error", "Cannot connect to unit");
//   if (GuiMessages::question(this, "Question", "Delete it ?") == QMessageBox::Yes) ...
class GuiMessages {
public:
    // About: the program's about box (rich text, the logo as its picture).
    enum Kind { Information, Warning, Critical, Question, About };

    virtual ~GuiMessages() = default;

    // Shows one message and returns the button chosen (NoButton when the box
    // was closed without one).
    virtual QMessageBox::StandardButton ask(Kind kind, QWidget* parent, const QString& title,
                                            const QString& text,
                                            QMessageBox::StandardButtons buttons,
                                            QMessageBox::StandardButton defaultButton) = 0;

    // The instance in use; the message-box one unless another was set.
    static GuiMessages& get();
    // Replaces the instance (not owned); nullptr goes back to message boxes.
    // Returns the one that was set before. GUI thread only.
    static GuiMessages* set(GuiMessages* messages);

    static QMessageBox::StandardButton
    information(QWidget* parent, const QString& title, const QString& text,
                QMessageBox::StandardButtons buttons = QMessageBox::Ok,
                QMessageBox::StandardButton defaultButton = QMessageBox::NoButton) {
        return get().ask(Information, parent, title, text, buttons, defaultButton);
    }
    static QMessageBox::StandardButton
    warning(QWidget* parent, const QString& title, const QString& text,
            QMessageBox::StandardButtons buttons = QMessageBox::Ok,
            QMessageBox::StandardButton defaultButton = QMessageBox::NoButton) {
        return get().ask(Warning, parent, title, text, buttons, defaultButton);
    }
    static QMessageBox::StandardButton
    critical(QWidget* parent, const QString& title, const QString& text,
             QMessageBox::StandardButtons buttons = QMessageBox::Ok,
             QMessageBox::StandardButton defaultButton = QMessageBox::NoButton) {
        return get().ask(Critical, parent, title, text, buttons, defaultButton);
    }
    static QMessageBox::StandardButton
    question(QWidget* parent, const QString& title, const QString& text,
             QMessageBox::StandardButtons buttons = QMessageBox::Yes | QMessageBox::No,
             QMessageBox::StandardButton defaultButton = QMessageBox::NoButton) {
        return get().ask(Question, parent, title, text, buttons, defaultButton);
    }
    static void about(QWidget* parent, const QString& title, const QString& text) {
        get().ask(About, parent, title, text, QMessageBox::Ok, QMessageBox::Ok);
    }

    // File dialogs go through here too.
    enum FileKind { OpenFile, SaveFile, Directory };

    // Shows a file dialog and returns the name chosen, empty when cancelled.
    // filter holds the filters separated by ";;"; selectedFilter, when
    // given, preselects one and receives the one chosen. A save dialog adds
    // the suffix of the chosen filter ("(*.csv)" gives "csv") to a name typed
    // without one. The default shows a modal QFileDialog.
    virtual QString fileDialog(FileKind kind, QWidget* parent, const QString& caption,
                               const QString& path, const QString& filter, QString* selectedFilter);

    static QString saveFileName(QWidget* parent, const QString& caption, const QString& path,
                                const QString& filter, QString* selectedFilter = nullptr) {
        return get().fileDialog(SaveFile, parent, caption, path, filter, selectedFilter);
    }
    static QString openFileName(QWidget* parent, const QString& caption, const QString& path,
                                const QString& filter, QString* selectedFilter = nullptr) {
        return get().fileDialog(OpenFile, parent, caption, path, filter, selectedFilter);
    }
    static QString directory(QWidget* parent, const QString& caption, const QString& path) {
        return get().fileDialog(Directory, parent, caption, path, QString(), nullptr);
    }
};

// The default: modal QMessageBox boxes.
class GuiMessageBoxes : public GuiMessages {
public:
    QMessageBox::StandardButton ask(Kind kind, QWidget* parent, const QString& title,
                                    const QString& text, QMessageBox::StandardButtons buttons,
                                    QMessageBox::StandardButton defaultButton) override;
};

#endif
