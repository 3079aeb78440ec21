#include "waiting_face.h"

#include <QLabel>
#include <QStackedLayout>
#include <QTimer>

#include "busy_indicator.h"
#include "panel_layout.h"

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

WaitingFace::WaitingFace(const QString& hint, QWidget* parent) : QWidget(parent), hint_(hint) {
    spinner_ = new BusyIndicator(this);
    spinner_->setObjectName(u"spinner"_s);
    text_ = new QLabel(tr("Loading ..."), this);
    text_->setObjectName(u"waitingText"_s);
    faces_ = new QStackedLayout(this);
    faces_->addWidget(Centered(spinner_, this));
    faces_->addWidget(Centered(text_, this));
}

void WaitingFace::showSpinner() {
    faces_->setCurrentIndex(0);
}

void WaitingFace::showText() {
    faces_->setCurrentIndex(1);
    if (!std::exchange(timerStarted_, true)) {
        QTimer::singleShot(5s, this, [this] { text_->setText(hint_); });
    }
}
