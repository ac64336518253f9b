#include "dialogchangepassword.h"

#include "guimessages.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

DialogChangePassword::DialogChangePassword(QWidget* parent) : QDialog(parent) {
    setWindowTitle("Tavro-gui - Change Password");
    QVBoxLayout* layout = new QVBoxLayout(this);
    QFormLayout* form = new QFormLayout();
    opassword1 = new QLineEdit(this);
    opassword1->setObjectName("password1");
    opassword1->setEchoMode(QLineEdit::Password);
    opassword2 = new QLineEdit(this);
    opassword2->setObjectName("password2");
    opassword2->setEchoMode(QLineEdit::Password);
    form->addRow("Password1", opassword1);
    form->addRow("Password2", opassword2);
    layout->addLayout(form);

    QHBoxLayout* buttons = new QHBoxLayout();
    QPushButton* set = new QPushButton("Set Password", this);
    set->setObjectName("setPassword");
    set->setDefault(true);
    QPushButton* cancel = new QPushButton("Cancel", this);
    cancel->setObjectName("cancel");
    buttons->addStretch();
    buttons->addWidget(set);
    buttons->addWidget(cancel);
    layout->addLayout(buttons);

    connect(set, &QPushButton::clicked, this, &DialogChangePassword::setPassword);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
}

void DialogChangePassword::setPassword() {
    if (opassword1->text() != opassword2->text()) {
        GuiMessages::critical(this, "Tavro-gui - Error", "Passwords do not match");
        return;
    }
    accept();
}

bool DialogChangePassword::process(QString& password) {
    if (exec() != QDialog::Accepted)
        return false;
    password = opassword1->text();
    return true;
}
