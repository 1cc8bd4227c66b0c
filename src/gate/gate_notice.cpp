#include "gate_notice.h"

#include "multilingual_management.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>

namespace {

const int kTickMs = 1000;

QLabel* addLabel(QVBoxLayout* layout, const QString& text, int pixelSize, bool bold)
{
    auto* label = new QLabel;
    // The reason carries names from the stick: never markup.
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignCenter);
    QFont font = label->font();
    font.setPixelSize(pixelSize);
    font.setBold(bold);
    label->setFont(font);
    layout->addWidget(label);
    return label;
}

} // namespace

GateNotice::GateNotice(const QString& reason, const QString& packageDir, int seconds,
                       QWidget* parent)
    : QWidget(parent), m_packageDir(packageDir), m_secondsLeft(seconds)
{
    setObjectName("GateNotice");
    setWindowFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    // The same red as a failed update's screen.
    setPalette(QPalette(QColor(Qt::red)));
    setAutoFillBackground(true);
    const int base = QWidget::font().pixelSize() > 0 ? QWidget::font().pixelSize() : 12;
    auto* layout = new QVBoxLayout(this);
    layout->addStretch();
    m_title = addLabel(layout, kel::text(kel::kGateUpdateRefused), base * 2, true);
    m_reason = addLabel(layout, reason, base + base / 2, false);
    m_advice = addLabel(layout, kel::text(kel::kGateRemoveStickAndTell), base + base / 2, false);
    layout->addStretch();
    setGeometry(QGuiApplication::primaryScreen()->geometry());
}

QString GateNotice::text() const
{
    return m_title->text() + "\n" + m_reason->text() + "\n" + m_advice->text();
}

void GateNotice::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    QTimer::singleShot(m_secondsLeft > 0 ? kTickMs : 0, this, &GateNotice::tick);
}

void GateNotice::tick()
{
    --m_secondsLeft;
    if (m_secondsLeft <= 0 || !QFileInfo::exists(m_packageDir)) {
        close();
        return;
    }
    QTimer::singleShot(kTickMs, this, &GateNotice::tick);
}

void GateNotice::mousePressEvent(QMouseEvent*)
{
    close();
}
