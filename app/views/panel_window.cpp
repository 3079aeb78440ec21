#include "panel_window.h"

#include <QApplication>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QTimer>
#include <QVBoxLayout>

#include "menu_bar_view.h"
#include "status_notifier_host.h"

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 reopenGuardMs = 400;

// A dialog the panel opened (a folder chooser) keeps the panel open behind it.
bool belongsTo(const QWidget* window, const QWidget* panel) {
    for (const QWidget* widget = window; widget != nullptr; widget = widget->parentWidget()) {
        if (widget == panel) {
            return true;
        }
    }
    return false;
}

}  // namespace

PanelWindow::PanelWindow(ViewEnvironment& environment, QWidget* parent) : QWidget(parent) {
    setObjectName(u"panelWindow"_s);
    setWindowTitle(u"brisvane"_s);
    setAttribute(Qt::WA_QuitOnClose, false);
    menuBarView_ = new MenuBarView(environment, this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(menuBarView_);
    connect(menuBarView_, &MenuBarView::screenChanged, this, &PanelWindow::fitToScreen,
            Qt::QueuedConnection);
    setPopup(true);
}

void PanelWindow::fitToScreen() {
    // The size the last screen was held to would bound the next one's.
    setMinimumSize(0, 0);
    setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    adjustSize();
    if (!isPopup_) {
        return;
    }
    // Tiling compositors float a window whose least and greatest sizes agree, at that
    // size, instead of stretching it over the screen.
    setFixedSize(size());
    if (!IsWaylandSession()) {
        move(PopupPosition(anchor_, size()));
    }
}

void PanelWindow::setPopup(bool popup) {
    isPopup_ = popup;
    // Without a window frame, a thin line keeps the popup apart from what lies behind.
    const int border = popup ? 1 : 0;
    layout()->setContentsMargins(border, border, border, border);
    setWindowFlags(popup ? Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint
                         : Qt::Window);
}

void PanelWindow::showAsPopup(const PopupAnchor& anchor) {
    if (!isPopup_) {
        setPopup(true);
    }
    anchor_ = anchor;
    fitToScreen();
    show();
    raise();
    activateWindow();
}

void PanelWindow::showAsWindow() {
    if (isPopup_) {
        setPopup(false);
    } else if (isVisible() && !isActiveWindow() && IsWaylandSession()) {
        // Shown anew, it is a new window to the compositor, and new windows come to
        // the front.
        hide();
    }
    fitToScreen();
    show();
    raise();
    activateWindow();
}

bool PanelWindow::closedByFocusLossJustNow() const {
    return sinceFocusLossClose_.isValid() && sinceFocusLossClose_.elapsed() < reopenGuardMs;
}

void PanelWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isPopup_ && isVisible() && !isActiveWindow()) {
        // The window that takes the focus is only known once activation settles.
        QTimer::singleShot(0, this, &PanelWindow::closeIfFocusLeft);
    }
}

void PanelWindow::closeIfFocusLeft() {
    if (!isPopup_ || !isVisible() || isActiveWindow() ||
        belongsTo(QApplication::activeWindow(), this) ||
        belongsTo(QApplication::activeModalWidget(), this)) {
        return;
    }
    hide();
    sinceFocusLossClose_.start();
}

void PanelWindow::paintEvent(QPaintEvent* event) {
    QWidget::paintEvent(event);
    if (isPopup_) {
        QPainter painter(this);
        painter.setPen(palette().color(QPalette::Mid));
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
    }
}

void PanelWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape && isPopup_) {
        hide();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PanelWindow::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    QTimer::singleShot(0, this, &PanelWindow::releaseWindowWhileHidden);
}

void PanelWindow::releaseWindowWhileHidden() {
    // The panel is hidden far longer than it is shown: its window, and the window-sized image
    // it is drawn into, go back to the window system until it opens again. Not while a
    // dialog it opened is still up.
    if (isVisible() || !testAttribute(Qt::WA_WState_Created)) {
        return;
    }
    for (const QWidget* child : findChildren<QWidget*>()) {
        if (child->isWindow() && child->isVisible()) {
            return;
        }
    }
    destroy();
}

void PanelWindow::closeEvent(QCloseEvent* event) {
    QWidget::closeEvent(event);
    if (!isPopup_) {
        emit windowClosed();
    }
}
