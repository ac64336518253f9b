#ifndef DIALOGCHANGEPASSWORD_H
#define DIALOGCHANGEPASSWORD_H

#include <QDialog>

class QLineEdit;

// Asks for a new password twice; the two must match.
class DialogChangePassword : public QDialog {
    Q_OBJECT
public:
    explicit DialogChangePassword(QWidget* parent = nullptr);

    // Runs the dialog modally; true with the new password when it was set.
    bool process(QString& password);

private slots:
    // Closes when the two texts match; otherwise says so and stays open.
    void setPassword();

private:
    QLineEdit* opassword1;
    QLineEdit* opassword2;
};

#endif
