// Texts cross between the widgets and the engine's byte strings as
// ISO-8859-1: byte n is the character U+00nn and back. A character above
// U+00FF has no byte and becomes '?'. Both windows use these two, and only
// these, wherever bytes meet a widget.
#pragma once

#include <QString>

#include <string>
#include <string_view>

namespace brindlex::gui {

QString towidget(std::string_view bytes);
std::string fromwidget(const QString& text);

}  // namespace brindlex::gui
