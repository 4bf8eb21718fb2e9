#include "BroadCastPlugin/ui/widgets/PromptBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QTimer>
#include <QToolButton>
#include <QVariant>

#include <cstring>

#include "BroadCastPlugin/BroadcastUi.h"

namespace BroadCastPlugin {

namespace {
struct LevelStyle {
    const char* const* level;
    const char* background;
    const char* foreground;
    int hideAfterMs;  ///< 0: stays
};

const LevelStyle kStyles[] = {
    {&kMessageLevelBrand, "#1f5fbf", "#ffffff", 4000},  {&kMessageLevelNeutral, "#e8e8e8", "#202020", 4000},
    {&kMessageLevelDanger, "#c62828", "#ffffff", 0},    {&kMessageLevelInfo, "#e3f0fc", "#0d3c6e", 5000},
    {&kMessageLevelRemind, "#fff4d6", "#6b4e00", 6000}, {&kMessageLevelSuccess, "#e2f4e4", "#1b5e20", 4000},
    {&kMessageLevelWarning, "#ffe7cc", "#8a4b00", 0},
};

const LevelStyle& StyleOf(const char* level) {
    for (const LevelStyle& style : kStyles) {
        if (level != nullptr && std::strcmp(*style.level, level) == 0) {
            return style;
        }
    }
    return kStyles[3];
}
}  // namespace

CPromptBar::CPromptBar(QWidget* parent)
    : QFrame(parent), text_(new QLabel(this)), close_(new QToolButton(this)), hideTimer_(new QTimer(this)) {
    setObjectName("PromptBar");
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 4, 4);
    text_->setObjectName("PromptText");
    text_->setWordWrap(true);
    text_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    close_->setText(QStringLiteral("\u2715"));
    close_->setToolTip(tr("Close the message"));
    close_->setAutoRaise(true);
    layout->addWidget(text_, 1);
    layout->addWidget(close_);
    hideTimer_->setSingleShot(true);
    connect(hideTimer_, &QTimer::timeout, this, &QWidget::hide);
    connect(close_, &QToolButton::clicked, this, &QWidget::hide);
    hide();
}

void CPromptBar::Show(const char* level, const QString& text) {
    const LevelStyle& style = StyleOf(level);
    level_ = QString::fromLatin1(*style.level);
    setProperty("level", level_);
    setStyleSheet(QStringLiteral("#PromptBar{background:%1;border-radius:4px;} #PromptText{color:%2;}")
                      .arg(QLatin1String(style.background), QLatin1String(style.foreground)));
    text_->setText(text);
    show();
    hideTimer_->stop();
    if (style.hideAfterMs > 0) {
        hideTimer_->start(style.hideAfterMs);
    }
}

QString CPromptBar::Text() const {
    return text_->text();
}

}  // namespace BroadCastPlugin
