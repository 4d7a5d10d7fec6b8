// Both windows, the viewer open on a file, at their first size and two
// larger ones: no two visible controls side by side overlap, none reaches
// out of its parent, and every caption, button, box and list of choices has
// the room its text needs. ctest runs this at QT_SCALE_FACTOR 1, 1.5 and 2,
// and with BRINDLEX_FONT_SCALE=1.5, a system font half as large again.
#include <QtTest>
#include <QtWidgets>

#include "gui/viewer/form2.h"
#include "support/guiworld.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

namespace {

QString name(const QWidget* w) { return w->objectName(); }

// The program's controls: named by the program, not parts of a control.
bool control(const QWidget* w, const QWidget* window)
{
    return !w->isWindow() && w->isVisibleTo(window) && !name(w).isEmpty() && !name(w).startsWith("qt_");
}

// What `w` lacks for its text, or an empty string.
QString cramped(const QWidget* w)
{
    const QFontMetrics fm(w->font());
    auto need = [&](int wantWidth, int haveWidth, int wantHeight, int haveHeight) {
        return wantWidth > haveWidth || wantHeight > haveHeight
                   ? QString("%1 needs %2x%3, has %4x%5").arg(name(w)).arg(wantWidth).arg(wantHeight).arg(haveWidth).arg(haveHeight)
                   : QString();
    };
    if (const auto* label = qobject_cast<const QLabel*>(w); label && !label->wordWrap() && label->pixmap().isNull())
        return need(fm.horizontalAdvance(label->text()), label->contentsRect().width(), fm.height(),
                    label->contentsRect().height());
    if (const auto* button = qobject_cast<const QAbstractButton*>(w))
        return need(button->sizeHint().width(), button->width(), button->minimumSizeHint().height(), button->height());
    if (const auto* combo = qobject_cast<const QComboBox*>(w)) {
        QStyleOptionComboBox option;
        option.initFrom(combo);
        const QRect field = combo->style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, combo);
        return need(fm.horizontalAdvance(combo->currentText()), field.width(), fm.height(), field.height());
    }
    if (const auto* box = qobject_cast<const QLineEdit*>(w)) {
        const int frame = 2 * box->style()->pixelMetric(QStyle::PM_DefaultFrameWidth) + 4;
        return need(fm.horizontalAdvance(box->text()) + frame, box->width(), fm.height(), box->height());
    }
    return {};
}

}  // namespace

class LayoutTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const double scale = qEnvironmentVariable("BRINDLEX_FONT_SCALE", "1").toDouble();
        QFont font = QApplication::font();
        font.setPointSizeF(font.pointSizeF() * scale);
        QApplication::setFont(font);
    }

    void windows_data()
    {
        QTest::addColumn<bool>("viewer");
        QTest::addColumn<QSizeF>("grow");   // the first size times this
        for (const bool viewer : {false, true})
            for (const QSizeF grow : {QSizeF(1, 1), QSizeF(1.2, 1.1), QSizeF(1.8, 1.6)})
                QTest::addRow("%s %gx%g", viewer ? "Form2" : "Form1", grow.width(), grow.height()) << viewer << grow;
    }

    void windows()
    {
        QFETCH(bool, viewer);
        QFETCH(QSizeF, grow);
        World world;
        world.write("f.bin", QByteArray(3000, '\1') + QByteArray(1, '\0'));
        auto form = World::start(true, "f.bin");
        QWidget* window = viewer ? static_cast<QWidget*>(form->viewer()) : form.get();
        QVERIFY(window && window->isVisible());
        window->resize(qRound(window->width() * grow.width()), qRound(window->height() * grow.height()));
        QApplication::processEvents();
        QTest::qWait(20);
        QStringList found;
        const QList<QWidget*> all = window->findChildren<QWidget*>();
        for (QWidget* w : all) {
            if (!control(w, window))
                continue;
            if (const QString lack = cramped(w); !lack.isEmpty())
                found << lack;
            if (QWidget* parent = w->parentWidget(); parent && !parent->rect().contains(w->geometry()))
                found << QString("%1 reaches out of %2").arg(name(w), name(parent).isEmpty() ? "its parent" : name(parent));
            for (QWidget* other : all)
                if (other != w && name(w) < name(other) && other->parentWidget() == w->parentWidget()
                    && control(other, window) && w->geometry().intersects(other->geometry()))
                    found << QString("%1 overlaps %2").arg(name(w), name(other));
        }
        QVERIFY2(found.isEmpty(), qPrintable(found.join("; ")));
    }
};

QTEST_MAIN(LayoutTest)
#include "layout.moc"
