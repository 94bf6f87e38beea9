#include "foldedtext.h"

#include <QString>

QString foldedText(const QString& text)
{
    QString folded;
    for (const QChar& c : text.normalized(QString::NormalizationForm_KD))
        if (!c.isMark() && c.category() != QChar::Other_Control)
            folded.append(c);
    return folded.toCaseFolded();
}
