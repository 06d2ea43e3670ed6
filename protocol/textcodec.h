/// \file
/// The process-wide codecs for C strings and for translated texts.
///
/// Qt 4 had both; its successors read every C string as UTF-8 and every source text too. Test sets
/// in the field name their files and references in GBK, so the library keeps the two settings
/// itself. The locale's codec is never touched: it would re-encode the application's file names.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>
#include <QString>

class QTextCodec;

namespace textcodec {

/// Installs the codec for C strings: file paths given as `char *` and reference texts. A null
/// pointer restores the initial state, Latin-1. The codec must outlive its use, as every codec that
/// QTextCodec::codecForName() returns does.
LUMTAR_EXPORT void setCodecForCStrings(QTextCodec *codec);

/// Installs the codec for the library's own translated texts. A null pointer restores the initial
/// state, GBK, in which those texts are stored.
LUMTAR_EXPORT void setCodecForTr(QTextCodec *codec);

/// Installs both as the engine does: GBK.
LUMTAR_EXPORT void installDefaultCodecs();

/// Text of a zero-terminated C string; empty for a null pointer.
LUMTAR_EXPORT QString fromCString(const char *bytes);

/// Bytes of \a text as a C string, without the terminating zero. A character that the codec does
/// not know becomes "?".
LUMTAR_EXPORT QByteArray toCString(const QString &text);

/// Text of one of the library's own messages.
LUMTAR_EXPORT QString fromTr(const char *bytes);

} // namespace textcodec
