#include "gui/viewer/pagebox.h"

namespace brindlex::gui {

namespace {

constexpr char16_t kMarkCR = 0x21B5;       // a CR that is no usual line end
constexpr char16_t kMarkLF = 0x2193;       // an LF that is no usual line end
constexpr char16_t kPictures = 0x2400;     // control picture of byte 0
constexpr char16_t kPictureDel = 0x2421;   // control picture of byte 127
constexpr char16_t kSoftBreak = 0x2028;    // a line break inside a paragraph
constexpr char16_t kParagraph = 0x2029;    // how the document separates blocks

bool controlpicture(char16_t c) { return (c >= kPictures && c < kPictures + 32) || c == kPictureDel; }

}  // namespace

LineEnd usuallineend(std::string_view bytes)
{
    std::int64_t crlf = 0;
    std::int64_t lf = 0;
    for (std::size_t at = bytes.find('\n'); at != std::string_view::npos; at = bytes.find('\n', at + 1))
        (at > 0 && bytes[at - 1] == '\r' ? crlf : lf) += 1;
    return lf > crlf ? LineEnd::Lf : LineEnd::CrLf;
}

QString pagetobox(std::string_view bytes, LineEnd plain)
{
    auto plainat = [&](std::size_t at) {
        return plain == LineEnd::Lf ? bytes[at] == '\n' : bytes.substr(at, 2) == "\r\n";
    };
    QString shown;
    shown.reserve(static_cast<qsizetype>(bytes.size()));
    for (std::size_t at = 0; at < bytes.size();) {
        const auto b = static_cast<unsigned char>(bytes[at]);
        if (plainat(at)) {
            shown += QChar(u'\n');
            at += plain == LineEnd::Lf ? 1 : 2;
            continue;
        }
        ++at;
        if (b == '\t' || (b >= 32 && b != 127))
            shown += QChar(b);
        else if (b == '\r' || b == '\n')
            shown += QChar(b == '\r' ? kMarkCR : kMarkLF);
        else
            shown += QChar(b == 127 ? kPictureDel : static_cast<char16_t>(kPictures + b));
        if ((b == '\r' || b == '\n') && (at == bytes.size() || !plainat(at)))
            shown += QChar(kSoftBreak);
    }
    return shown;
}

std::string boxtopage(QStringView shown, LineEnd plain)
{
    const std::string_view end = plain == LineEnd::Lf ? "\n" : "\r\n";
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(shown.size()) + 64);
    char16_t before = 0;
    for (const QChar qc : shown) {
        const char16_t c = qc.unicode();
        if (c == u'\n' || c == kParagraph)
            bytes += end;
        else if (c == kSoftBreak)
            bytes += before == kMarkCR || before == kMarkLF ? std::string_view() : end;
        else if (c == kMarkCR || c == kMarkLF)
            bytes += c == kMarkCR ? '\r' : '\n';
        else if (controlpicture(c))
            bytes += static_cast<char>(c == kPictureDel ? 127 : c - kPictures);
        else
            bytes += c <= 0xFF ? static_cast<char>(c) : '?';
        before = c;
    }
    return bytes;
}

PageBox::PageBox(QWidget* parent) : QPlainTextEdit(parent)
{
    setLineWrapMode(QPlainTextEdit::NoWrap);
}

void PageBox::setpage(std::string_view bytes)
{
    plain = usuallineend(bytes);
    // A page of Full Text may hold megabytes: no undo record of the old page.
    document()->setUndoRedoEnabled(false);
    setPlainText(pagetobox(bytes, plain));
    document()->setUndoRedoEnabled(true);
}

std::string PageBox::page() const
{
    // The raw text keeps U+00A0 and the soft breaks, which toPlainText
    // would turn into a blank and a line feed.
    return boxtopage(document()->toRawText(), plain);
}

std::int64_t PageBox::pageoffset(int at) const
{
    const QString raw = document()->toRawText();
    return static_cast<std::int64_t>(boxtopage(QStringView(raw).left(at), plain).size());
}

}  // namespace brindlex::gui
