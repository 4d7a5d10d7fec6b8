// The viewer's page box: a plain text box that gives back exactly the bytes
// it was given. A text widget makes one line break of CR LF, of a lone CR and
// of a lone LF, so the box keeps its own mapping between page bytes and the
// characters it shows:
//
// - The page's usual line end (CR LF, or LF where lone LFs outnumber CR LFs)
//   is a plain line break, and Enter types one.
// - A CR or LF that is not part of the usual line end shows as a mark, CR as
//   U+21B5 (an arrow that returns) and LF as U+2193 (an arrow down),
//   followed by a soft line break (U+2028) unless a plain break follows
//   anyway: a line break always reads as one.
// - The other control bytes 0-31 (but tab) and 127 show as their control
//   pictures; a tab is a tab; 128-255 are the characters U+0080-U+00FF.
//
// With the usual end CR LF, "a\nb\r\nc" shows as "a↓<soft>b<break>c"; with
// the usual end LF, "a\r\nb\nc" shows as "a↵<break>b<break>c".
//
// Back from the box: a plain break is the usual line end, a soft break right
// behind a CR or LF mark is nothing, any other soft break is the usual line
// end, a mark or a control picture is its byte, a character above U+00FF
// that is none of these is '?'.
#pragma once

#include <QPlainTextEdit>

#include <cstdint>
#include <string>
#include <string_view>

namespace brindlex::gui {

enum class LineEnd { CrLf, Lf };

// The usual line end of `bytes`.
LineEnd usuallineend(std::string_view bytes);

QString pagetobox(std::string_view bytes, LineEnd plain);
std::string boxtopage(QStringView shown, LineEnd plain);

class PageBox final : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit PageBox(QWidget* parent = nullptr);

    // Shows `bytes`; page() gives them back until the user edits them.
    void setpage(std::string_view bytes);
    std::string page() const;

    // The place in page() of the box's character position `at`.
    std::int64_t pageoffset(int at) const;

private:
    LineEnd plain = LineEnd::CrLf;
};

}  // namespace brindlex::gui
