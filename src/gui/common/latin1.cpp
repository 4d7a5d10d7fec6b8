#include "gui/common/latin1.h"

namespace brindlex::gui {

QString towidget(std::string_view bytes)
{
    return QString::fromLatin1(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

std::string fromwidget(const QString& text)
{
    // toLatin1 already turns a character above U+00FF into '?'.
    const QByteArray bytes = text.toLatin1();
    return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

}  // namespace brindlex::gui
