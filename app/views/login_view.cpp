#include "login_view.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/panel_model.h"
#include "view_environment.h"
#include "view_fonts.h"

using namespace Qt::Literals::StringLiterals;

UsernameTextField::UsernameTextField(QWidget* parent) : QLineEdit(parent) {
    setObjectName(u"usernameField"_s);
    setPlaceholderText(tr("email"));
    setAccessibleName(tr("E-mail address"));
    // An e-mail address is neither a word to correct nor to complete.
    setInputMethodHints(Qt::ImhEmailCharactersOnly | Qt::ImhNoPredictiveText |
                        Qt::ImhNoAutoUppercase);
}

void UsernameTextField::focusInEvent(QFocusEvent* event) {
    QLineEdit::focusInEvent(event);
    setEditingMode(true);
}

void UsernameTextField::focusOutEvent(QFocusEvent* event) {
    QLineEdit::focusOutEvent(event);
    setEditingMode(false);
}

void UsernameTextField::setEditingMode(bool editingMode) {
    if (editingMode_ != editingMode) {
        editingMode_ = editingMode;
        emit editingModeChanged(editingMode);
    }
}

PasswordSecureField::PasswordSecureField(QWidget* parent) : QLineEdit(parent) {
    setObjectName(u"passwordField"_s);
    setPlaceholderText(tr("password"));
    setAccessibleName(tr("Password"));
    setEchoMode(QLineEdit::Password);
}

LoginButtonContent::LoginButtonContent(QWidget* parent) : QLabel(tr("Login"), parent) {
    setFont(HeadlineFont(font()));
    setAlignment(Qt::AlignCenter);
    // Clicks belong to the button underneath.
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

LoginView::LoginView(ViewEnvironment& environment, QWidget* parent)
    : QWidget(parent), environment_(environment) {
    setObjectName(u"loginView"_s);
    // The panel's own background, whatever the window behind it paints.
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);

    auto* title = new QLabel(u"brisvane"_s, this);
    title->setFont(HeadlineFont(font()));

    PanelModel& ip = environment_.ip;
    usernameField_ = new UsernameTextField(this);
    usernameField_->setText(ip.userName());
    connect(usernameField_, &QLineEdit::textChanged, &ip, &PanelModel::setUserName);
    connect(&ip, &PanelModel::userNameChanged, usernameField_, [this] {
        if (usernameField_->text() != environment_.ip.userName()) {
            usernameField_->setText(environment_.ip.userName());
        }
    });

    passwordField_ = new PasswordSecureField(this);
    connect(passwordField_, &QLineEdit::returnPressed, this, &LoginView::logIn);
    connect(usernameField_, &QLineEdit::returnPressed, passwordField_,
            qOverload<>(&QWidget::setFocus));

    auto* loginButton = new QPushButton(this);
    loginButton->setObjectName(u"loginButton"_s);
    loginButton->setFlat(true);
    loginButton->setAccessibleName(tr("Login"));
    auto* buttonContent = new LoginButtonContent(loginButton);
    auto* buttonLayout = new QHBoxLayout(loginButton);
    buttonLayout->setContentsMargins(0, 0, 0, 0);
    buttonLayout->addWidget(buttonContent);
    loginButton->setMinimumSize(buttonContent->sizeHint() + QSize(24, 12));
    connect(loginButton, &QPushButton::clicked, this, &LoginView::logIn);

    auto* passwordLink = new QLabel(u"<a href=\"login\">%1</a>"_s.arg(tr("Get password")), this);
    passwordLink->setObjectName(u"getPasswordLink"_s);
    passwordLink->setAccessibleName(tr("Get password"));
    passwordLink->setTextInteractionFlags(Qt::LinksAccessibleByMouse |
                                          Qt::LinksAccessibleByKeyboard);
    passwordLink->setFocusPolicy(Qt::TabFocus);
    // The address is read when the link is followed, so it is whatever the model
    // holds by then.
    connect(passwordLink, &QLabel::linkActivated, this,
            [this] { environment_.openURL(environment_.ip.loginURL()); });

    auto* quitButton = new QPushButton(tr("Quit"), this);
    quitButton->setObjectName(u"quitButton"_s);
    quitButton->setFlat(true);
    connect(quitButton, &QPushButton::clicked, this, [this] { environment_.terminate(); });

    auto* bottomRow = new QHBoxLayout;
    bottomRow->addWidget(passwordLink);
    bottomRow->addStretch(1);
    bottomRow->addWidget(quitButton);

    // As large as the tabs that follow it, so the panel does not jump at login; the
    // fields keep to a readable width in the middle.
    setMinimumSize(650, 450);
    auto* form = new QWidget(this);
    form->setFixedWidth(320);
    auto* outer = new QHBoxLayout(this);
    outer->addWidget(form, 0, Qt::AlignHCenter);

    auto* column = new QVBoxLayout(form);
    column->addStretch(1);
    column->addWidget(title, 0, Qt::AlignHCenter);
    column->addSpacing(8);
    column->addWidget(usernameField_);
    column->addWidget(passwordField_);
    column->addSpacing(8);
    column->addWidget(loginButton, 0, Qt::AlignHCenter);
    column->addLayout(bottomRow);
}

void LoginView::logIn() {
    environment_.ip.publish(u"auth"_s, environment_.ip.userName(), passwordField_->text());
}
