#ifndef ZFORMFIELD_H
#define ZFORMFIELD_H

#include "zstring.h"

#include <QString>
#include <QWidget>

// The base of a form's fields. A field edits one value of a record; it
// tells why its present input cannot be taken (error(), empty when it can)
// and whether the input differs from what the last load put there
// (isModified()), so that a form writes back only what the user changed and
// refuses to save while any field is invalid.
//
// An invalid field says so at the field as the user types: its editor gets
// a red frame and the message as its tool tip. GUI thread only.
class ZFormField : public QWidget {
    Q_OBJECT
public:
    explicit ZFormField(QWidget* parent = nullptr);

    // Why the input cannot be taken; empty when it can.
    virtual QString error() const = 0;
    virtual bool isModified() const = 0;

    // Marks the editor with error() (or clears the mark).
    void showError();
    // The mark shown now: the message of the last showError().
    QString shownError() const { return oshown; }

    static ZString toZString(const QString& text);
    static QString toQString(const ZString& text);

signals:
    // The user changed the input.
    void edited();

protected:
    // The widget that carries the mark.
    void setEditor(QWidget* editor);

protected slots:
    // For the subclasses' editors: re-checks the input and emits edited().
    void inputChanged();

private:
    QWidget* oeditor;
    QString otoolTip; // the editor's own tool tip, shown while it is valid
    QString oshown;
};

#endif
