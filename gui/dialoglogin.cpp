#include "dialoglogin.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

DialogLogin::DialogLogin(QWidget* parent) : QDialog(parent) {
    setWindowTitle("Tavro-gui - Login");
    QVBoxLayout* layout = new QVBoxLayout(this);
    QFormLayout* form = new QFormLayout();
    ouserid = new QLineEdit(this);
    ouserid->setObjectName("userid");
    opassword = new QLineEdit(this);
    opassword->setObjectName("password");
    opassword->setEchoMode(QLineEdit::Password);
    form->addRow("Userid", ouserid);
    form->addRow("Password", opassword);
    layout->addLayout(form);

    QHBoxLayout* buttons = new QHBoxLayout();
    QPushButton* login = new QPushButton("Login", this);
    login->setObjectName("login");
    login->setDefault(true);
    QPushButton* cancel = new QPushButton("Cancel", this);
    cancel->setObjectName("cancel");
    buttons->addStretch();
    buttons->addWidget(login);
    buttons->addWidget(cancel);
    layout->addLayout(buttons);

    connect(login, &QPushButton::clicked, this, &QDialog::accept);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
}

bool DialogLogin::process(QString& userid, QString& password) {
    if (exec() != QDialog::Accepted)
        return false;
    userid = ouserid->text();
    password = opassword->text();
    return true;
}
