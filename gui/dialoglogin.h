#ifndef DIALOGLOGIN_H
#define DIALOGLOGIN_H

#include <QDialog>

class QLineEdit;

// Asks for a user name and password to log in to the units.
class DialogLogin : public QDialog {
    Q_OBJECT
public:
    explicit DialogLogin(QWidget* parent = nullptr);

    // Runs the dialog modally; true with the two texts when "Login" was pressed.
    bool process(QString& userid, QString& password);

private:
    QLineEdit* ouserid;
    QLineEdit* opassword;
};

#endif
