#include "wplaceholder.h"

#include <QLabel>
#include <QVBoxLayout>

WPlaceholder::WPlaceholder(const QString& title, const QString& text, QWidget* parent)
    : QWidget(parent), otext(text) {
    QVBoxLayout* layout = new QVBoxLayout(this);
    QLabel* heading = new QLabel("<b>" + title.toHtmlEscaped() + "</b>", this);
    QLabel* body = new QLabel(text, this);
    body->setObjectName("placeholderText");
    body->setWordWrap(true);
    layout->addWidget(heading);
    layout->addWidget(body);
    layout->addStretch();
}
