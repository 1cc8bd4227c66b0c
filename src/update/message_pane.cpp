#include "message_pane.h"

#include <QScrollBar>
#include <QTextCursor>
#include <QTextEdit>
#include <QTimer>

MessagePane::MessagePane(QTextEdit* edit) : QObject(edit), m_edit(edit)
{
    setObjectName("messagePane");
    // A read-only log: an undo history of every line would only cost memory.
    edit->document()->setUndoRedoEnabled(false);
}

void MessagePane::append(const QString& line, const QColor& colour)
{
    if (m_waiting.isEmpty())
        QTimer::singleShot(0, this, &MessagePane::flush);
    m_waiting.append({line, colour});
}

void MessagePane::flush()
{
    if (m_waiting.isEmpty())
        return;
    QScrollBar* bar = m_edit->verticalScrollBar();
    const bool atBottom = bar->value() == bar->maximum();
    QTextCursor cursor(m_edit->document());
    cursor.movePosition(QTextCursor::End);
    // One edit for the whole batch: the layout is brought up to date once, not once a line.
    cursor.beginEditBlock();
    QTextCharFormat format = m_edit->currentCharFormat();
    for (const auto& line : qAsConst(m_waiting)) {
        // Like QTextEdit::append: the first paragraph fills the empty document's own block, and
        // new blocks keep the pane's block format.
        if (!m_edit->document()->isEmpty())
            cursor.insertBlock();
        format.setForeground(line.second);
        cursor.insertText(line.first, format);
    }
    cursor.endEditBlock();
    m_waiting.clear();
    if (atBottom)
        bar->setValue(bar->maximum());
}
