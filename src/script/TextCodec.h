#pragma once

#include <QByteArray>
#include <QString>

/// The bytes of a project file and its text: a file is read in whatever form it came (UTF-8 or Latin-1,
/// LF or CR LF line ends) and written back in that form, so that a write-back changes only what it means
/// to change. Pure functions of their arguments, apart from ReadFile; any thread.
namespace TextCodec {

/// How a text stood in its file.
struct TEXT_FORM {
    bool Latin1 = false; ///< the bytes weren't UTF-8: each byte is one character
    bool Bom = false;    ///< UTF-8 behind a byte order mark
    bool Crlf = false;   ///< most line ends were CR LF
};

/// The text of a file's bytes, every CR LF as a line feed: UTF-8 when the bytes are valid UTF-8, Latin-1
/// otherwise. Form, if given, receives how the bytes stood.
QString Decode(const QByteArray& Bytes, TEXT_FORM* Form = nullptr);
/// The bytes of Text in Form. A Latin-1 form that can't hold every character of Text gives UTF-8, and
/// Form says so afterwards.
QByteArray Encode(const QString& Text, TEXT_FORM& Form);
/// Reads and decodes a file; false if it can't be read. Raw, if given, receives the bytes as they are.
bool ReadFile(const QString& Path, QString& Text, TEXT_FORM* Form = nullptr, QByteArray* Raw = nullptr);

} // namespace TextCodec
