#ifndef ZFORMPAGE_H
#define ZFORMPAGE_H

#include <QList>
#include <QString>
#include <QWidget>

class QFormLayout;
class QPushButton;
class ZFormField;

// A page of a form: a bold heading, then labelled fields in rows, further
// headings, free widgets and rows of buttons, top to bottom. The page knows
// its fields by label, so that it can name the first invalid one and tell
// whether any was changed. GUI thread only.
class ZFormPage : public QWidget {
    Q_OBJECT
public:
    ZFormPage(const QString& title, const QString& heading, QWidget* parent = nullptr);

    QString title() const { return otitle; }

    // A labelled row; the page owns field. Returns field.
    template <class F>
    F* addField(const QString& label, F* field) {
        addRow(label, field);
        addFieldOnly(label, field);
        return field;
    }
    // A field placed by the caller (in a grid added with addWidget), known
    // to the page by label.
    void addFieldOnly(const QString& label, ZFormField* field);
    void addRow(const QString& label, QWidget* widget);
    void addHeading(const QString& text);
    void addWidget(QWidget* widget);
    // A row of buttons, each clicked() connected to the slot of receiver
    // (SLOT() text).
    struct Button {
        const char* text;
        const char* slot;
    };
    void addButtons(const QList<Button>& buttons, QObject* receiver);

    // The fields by label; null for none.
    ZFormField* field(const QString& label) const;
    QStringList labels() const;
    // The first field whose input cannot be taken: its label and message.
    bool firstError(QString& label, QString& error) const;
    bool isModified() const;
    // The button of the given text; null for none.
    QPushButton* button(const QString& text) const;

private:
    struct Entry {
        QString label;
        ZFormField* field;
    };
    QString otitle;
    QFormLayout* orows;
    QList<Entry> ofields;
};

#endif
