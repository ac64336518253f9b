#ifndef WPLACEHOLDER_H
#define WPLACEHOLDER_H

#include <QWidget>

// A page whose functions are still to come: it says in a sentence what
// the page will hold.
class WPlaceholder : public QWidget {
    Q_OBJECT
public:
    WPlaceholder(const QString& title, const QString& text, QWidget* parent = nullptr);

    QString text() const { return otext; }

private:
    QString otext;
};

#endif
