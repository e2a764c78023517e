#include "script/TextCodec.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

namespace TextCodec {
namespace {

const char UTF8_BOM[] = "\xEF\xBB\xBF";

bool FitsLatin1(const QString& Text) {
    for (const QChar C : Text) {
        if (C.unicode() > 0xFF) {
            return false;
        }
    }
    return true;
}

} // namespace

QString Decode(const QByteArray& Bytes, TEXT_FORM* Form) {
    TEXT_FORM F;
    qsizetype Crlf = 0;
    qsizetype Lf = 0;
    for (qsizetype i = 0; i < Bytes.size(); ++i) {
        if (Bytes[i] == '\n') {
            ++(i > 0 && Bytes[i - 1] == '\r' ? Crlf : Lf);
        }
    }
    F.Crlf = Crlf > Lf;
    F.Bom = Bytes.startsWith(UTF8_BOM);
    const QByteArray Body = F.Bom ? Bytes.mid(3) : Bytes;
    QStringDecoder Utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString Text = Utf8.decode(Body);
    if (Utf8.hasError()) {
        // Not UTF-8: every byte stands for itself, so that writing the text back gives the same bytes.
        F.Latin1 = true;
        F.Bom = false;
        Text = QString::fromLatin1(Bytes);
    }
    Text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    if (Form) {
        *Form = F;
    }
    return Text;
}

QByteArray Encode(const QString& Text, TEXT_FORM& Form) {
    QString T = Text;
    if (Form.Crlf) {
        T.replace(QLatin1Char('\n'), QStringLiteral("\r\n"));
    }
    if (Form.Latin1 && FitsLatin1(T)) {
        return T.toLatin1();
    }
    // A character that Latin-1 has no byte for: the whole file becomes UTF-8, which keeps every character.
    Form.Latin1 = false;
    return (Form.Bom ? QByteArray(UTF8_BOM) : QByteArray()) + T.toUtf8();
}

bool ReadFile(const QString& Path, QString& Text, TEXT_FORM* Form, QByteArray* Raw) {
    QFile File(Path);
    if (Path.isEmpty() || QFileInfo(Path).isDir() || !File.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray Bytes = File.readAll();
    Text = Decode(Bytes, Form);
    if (Raw) {
        *Raw = Bytes;
    }
    return true;
}

} // namespace TextCodec
