#ifndef ZFORMTEXT_H
#define ZFORMTEXT_H

#include "zformfield.h"

#include <functional>

class QLineEdit;

// A text field for a record's character array of width bytes: the text,
// in UTF-8, must leave room for the terminating zero, so at most width - 1
// bytes are taken; longer text is refused with a message at the field
// rather than cut. Width 0 sets no limit. A check may refuse more (for
// example a folder that does not exist).
class ZFormText : public ZFormField {
    Q_OBJECT
public:
    // The message of what is wrong with text; empty when it is right.
    using Check = std::function<QString(const QString& text)>;

    explicit ZFormText(int width, QWidget* parent = nullptr);

    void setValue(const QString& text);
    void setValue(const ZString& text) { setValue(toQString(text)); }
    QString text() const;
    ZString value() const { return toZString(text()); }
    void setText(const QString& text);
    void setCheck(const Check& check);
    // Input shown as dots.
    void setPassword(bool on);
    int width() const { return owidth; }
    QLineEdit* lineEdit() const { return oedit; }

    QString error() const override;
    bool isModified() const override;

private:
    int owidth;
    Check ocheck;
    QLineEdit* oedit;
    QString oloaded;
};

#endif
