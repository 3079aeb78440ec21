#pragma once

// The whole panel while the user is logged out: e-mail, password, "Login", a link
// to the page where a password is obtained, and "Quit".

#include <QLabel>
#include <QLineEdit>
#include <QWidget>

struct ViewEnvironment;

// The e-mail field. Its text is the model's userName, kept in step both ways;
// editingMode says whether the field is being edited.
class UsernameTextField : public QLineEdit {
    Q_OBJECT

public:
    explicit UsernameTextField(QWidget* parent = nullptr);

    bool editingMode() const { return editingMode_; }

signals:
    void editingModeChanged(bool editingMode);

protected:
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void setEditingMode(bool editingMode);

    bool editingMode_ = false;
};

// The masked password field.
class PasswordSecureField : public QLineEdit {
    Q_OBJECT

public:
    explicit PasswordSecureField(QWidget* parent = nullptr);
};

// The login button's label.
class LoginButtonContent : public QLabel {
    Q_OBJECT

public:
    explicit LoginButtonContent(QWidget* parent = nullptr);
};

class LoginView : public QWidget {
    Q_OBJECT

public:
    explicit LoginView(ViewEnvironment& environment, QWidget* parent = nullptr);

    UsernameTextField* usernameField() const { return usernameField_; }
    PasswordSecureField* passwordField() const { return passwordField_; }

private:
    void logIn();

    ViewEnvironment& environment_;
    UsernameTextField* usernameField_;
    PasswordSecureField* passwordField_;
};
