// Form1's controls on their grid.
#include "gui/mainwindow/form1.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QProgressBar>
#include <QScreen>
#include <QPushButton>
#include <QStatusBar>
#include <QShortcut>
#include <QStyle>

#include <cstdlib>
#include <optional>
#include <system_error>

#include "engine/batch/run.h"
#include "engine/batch/runlog.h"
#include "engine/core/inplace.h"
#include "engine/core/saferewrite.h"
#include "engine/core/state.h"
#include "engine/core/workdir.h"
#include "engine/dump/dump.h"
#include "engine/files/files.h"
#include "engine/pattern/stringtools.h"
#include "gui/mainwindow/listmodel.h"
#include "gui/mainwindow/tabstopdelegate.h"
#include "gui/mainwindow/windowhost.h"
#include "engine/replacements/profile.h"
#include "engine/replacements/replist.h"
#include "engine/viewer/page.h"
#include "gui/replacements/repmenu.h"
#include "gui/seam/dialogs.h"
#include "gui/seam/launch.h"
#include "gui/viewer/form2.h"

#include "gui/mainwindow/busyscope.h"

namespace brindlex::gui {

namespace {

const QColor kDarkRed(0xC0, 0x00, 0x00);
// The client area's measures in the design, in twips.
constexpr int kDesignWidth = 6855, kDesignHeight = 7035;

void setcolour(QWidget* widget, const QColor& colour)
{
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, colour);
    widget->setPalette(palette);
}

}  // namespace

// Makes the controls of the client area, each under its program name; the
// grid of buildsurface places them.
class Designer {
public:
    Designer(QWidget* client, QObject* filter) : client(client), filter(filter) {}

    // A design measure in twips, in pixels of the window's screen.
    static int px(int twips, int dpi) { return (twips * dpi + 720) / 1440; }

    template <typename W>
    W* named(W* w, const char* name) const
    {
        w->setObjectName(QLatin1String(name));
        return w;
    }

    QLabel* label(const char* name, const char* text, Qt::Alignment align) const
    {
        auto* l = named(new QLabel(QLatin1String(text), client), name);
        l->setAlignment(align | Qt::AlignVCenter);
        return l;
    }

    // The three boxes share their column; the window watches their keys
    // and focus.
    QLineEdit* textbox(const char* name, const char* text) const
    {
        auto* t = named(new QLineEdit(QLatin1String(text), client), name);
        t->installEventFilter(filter);
        return t;
    }

    QPushButton* button(int index, const char* text) const
    {
        auto* b = new QPushButton(QLatin1String(text), client);
        b->setObjectName(QStringLiteral("cmd_%1").arg(index));
        b->setAutoDefault(false);
        return b;
    }

    QCheckBox* checkbox(const char* name, const char* text) const
    {
        return named(new QCheckBox(QLatin1String(text), client), name);
    }

    QListView* listbox(const char* name, QAbstractItemModel* model) const
    {
        auto* l = named(new QListView(client), name);
        l->setModel(model);
        // Every line is one text line high: the view need not measure
        // 100,000 of them.
        l->setUniformItemSizes(true);
        l->setSelectionMode(QAbstractItemView::ExtendedSelection);
        l->setItemDelegate(new TabStopDelegate(l));
        return l;
    }

    QWidget* client;
    QObject* filter;
};

// The design's arrangement on a grid: captions right-aligned in front of
// the three boxes, the command buttons in a column at their right, the
// check boxes under the boxes, then the two lists with their captions, each
// as wide as the window. The grid grows with the window (the lists take the
// height) and never lets it shrink below what every text needs.
void Form1::buildsurface()
{
    auto* client = new QWidget(this);
    setCentralWidget(client);
    Designer d(client, this);
    auto button = [&](int index, const char* text) {
        QPushButton* b = d.button(index, text);
        static constexpr void (Form1::*kSlots[])() = {&Form1::cmdFindAll_Click, &Form1::cmdReplace_Click,
                                                      &Form1::cmdDir_Click, &Form1::cmdCancel_Click};
        connect(b, &QPushButton::clicked, this, kSlots[index]);
        cmd[static_cast<std::size_t>(index)] = b;
        return b;
    };

    Label1 = d.label("Label1", "File(s)", Qt::AlignRight);
    Text1 = d.textbox("Text1", "*.*");
    chkIncludeSubs = d.checkbox("chkIncludeSubs", "Include Subdirectories");
    Label6 = d.label("Label6", "Find", Qt::AlignRight);
    setcolour(Label6, Qt::black);
    Text2 = d.textbox("Text2", "");
    Label3 = d.label("Label3", "Replace", Qt::AlignRight);
    Text3 = d.textbox("Text3", "");
    chkCase = d.checkbox("chkCase", "Match Case");
    chkAsk = d.checkbox("chkAsk", "Ask on Replace");
    auto* grid = new QGridLayout(client);
    grid->setColumnStretch(1, 1);
    grid->addWidget(Label1, 0, 0);
    grid->addWidget(Text1, 0, 1);
    grid->addWidget(button(2, "Dir"), 0, 2);
    grid->addWidget(chkIncludeSubs, 1, 1);
    grid->addWidget(Label6, 2, 0);
    grid->addWidget(Text2, 2, 1);
    grid->addWidget(button(0, "Find All"), 2, 2);
    grid->addWidget(Label3, 3, 0);
    grid->addWidget(Text3, 3, 1);
    grid->addWidget(button(1, "Replace"), 3, 2);
    auto* checks = new QHBoxLayout;
    checks->addWidget(chkCase);
    checks->addWidget(chkAsk);
    checks->addStretch(1);
    grid->addLayout(checks, 4, 1);
    grid->addWidget(button(3, "Cancel"), 4, 2);
    cmd[3]->setEnabled(false);
    // The window's cancel button: Esc presses it at once (a button's own
    // shortcut clicks only after a delay), and only while it is on.
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, cmd[3], &QPushButton::click);
    lblDir = d.label("lblDir", "____", Qt::AlignLeft);
    QFont underlined = lblDir->font();
    underlined.setUnderline(true);
    lblDir->setFont(underlined);
    setcolour(lblDir, kDarkRed);
    lblDir->installEventFilter(this);
    buildlists(d, *grid);
}

// The design's size of the client area, or more where the texts need it.
void Form1::fitdesignsize()
{
    const QSize design(Designer::px(kDesignWidth, logicalDpiX()),
                       Designer::px(kDesignHeight, logicalDpiY()) + menuBar()->sizeHint().height());
    resize(design.expandedTo(minimumSizeHint()));
}

// The two lists and their captions, below the boxes and buttons.
void Form1::buildlists(Designer& d, QGridLayout& grid)
{
    Label2 = d.label("Label2", "Size", Qt::AlignLeft);
    setcolour(Label2, kDarkRed);
    List1 = d.listbox("List1", filesModel);
    Label5 = d.label("Label5", "____", Qt::AlignLeft);
    setcolour(Label5, kDarkRed);
    // The status shows a file's path while a run is in hand: it is cut at
    // "Location" rather than widening the window.
    Label5->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Preferred);
    Label4 = d.label("Label4", "Location", Qt::AlignLeft);
    setcolour(Label4, kDarkRed);
    List2 = d.listbox("List2", hitsModel);
    List2->installEventFilter(this);
    // "Size" and "Location" stand over the lists' second column
    // (alignlistcaptions).
    auto captions = [&](QLabel* left, QLabel* right, int row) {
        auto* line = new QHBoxLayout;
        line->setSpacing(0);
        line->addWidget(left);
        line->addWidget(right);
        line->addStretch(1);
        grid.addLayout(line, row, 0, 1, 3);
    };
    captions(lblDir, Label2, 5);
    grid.addWidget(List1, 6, 0, 1, 3);
    captions(Label5, Label4, 7);
    grid.addWidget(List2, 8, 0, 1, 3);
    grid.setRowStretch(6, 1);
    grid.setRowStretch(8, 1);

    // The options go into the session as they change; a click on the
    // check box lists again with the new state.
    connect(chkIncludeSubs, &QCheckBox::toggled, this, [this](bool on) { session.bIncludeSubs = on; });
    connect(chkCase, &QCheckBox::toggled, this, [this](bool on) { session.bMatchCase = on; });
    connect(chkAsk, &QCheckBox::toggled, this, [this](bool on) { session.bAsk = on; });
    connect(Text2, &QLineEdit::textChanged, this, [this](const QString& t) { session.sFind = fromwidget(t); });
    connect(Text3, &QLineEdit::textChanged, this, [this](const QString& t) { session.sReplace = fromwidget(t); });
    connect(chkIncludeSubs, &QCheckBox::clicked, this, [this] { chkIncludeSubs_Click(); });
    connect(List1, &QListView::doubleClicked, this, [this] { List1_DblClick(); });
    connect(List2, &QListView::clicked, this, [this] { List2_Click(); });
    connect(List2, &QListView::doubleClicked, this, [this] { List2_DblClick(); });

    // The keyboard order of the design's tab indexes.
    const std::initializer_list<QWidget*> order{Text1, Text2, Text3, cmd[0], cmd[1], cmd[2],
                                               List1, List2, chkCase, chkAsk, cmd[3], chkIncludeSubs};
    QWidget* previous = nullptr;
    for (QWidget* w : order) {
        if (previous)
            setTabOrder(previous, w);
        previous = w;
    }
    Text1->setFocus();
}

// The mask box and the directory's caption ask for their texts' whole
// width: the window grows to show a long mask or directory, up to the
// screen's width (or the design's on a screen narrower than that).
void Form1::showbasedir()
{
    lblDir->setText(towidget(session.baseDir));
    const QScreen* screen = this->screen();
    const int most = std::max(Designer::px(kDesignWidth, logicalDpiX()),
                              screen ? screen->availableGeometry().width() * 3 / 4 : QWIDGETSIZE_MAX);
    const int frame = 2 * Text1->style()->pixelMetric(QStyle::PM_DefaultFrameWidth) + 8;
    Text1->setMinimumWidth(std::min(Text1->fontMetrics().horizontalAdvance(Text1->text()) + frame, most));
    lblDir->setMinimumWidth(std::max(
        captionIndent, std::min(lblDir->fontMetrics().horizontalAdvance(lblDir->text()) + 2 * lblDir->margin(), most)));
}

// The first tab stop of the lists, where their second column begins.
void Form1::alignlistcaptions(int stopUnits)
{
    captionIndent = List1->frameWidth() + TabStopDelegate::kTextMargin
        + stopUnits * List1->fontMetrics().averageCharWidth() / 4;
    Label5->setFixedWidth(captionIndent);
    lblDir->setMinimumWidth(std::max(captionIndent, lblDir->minimumWidth()));
}

}  // namespace brindlex::gui
