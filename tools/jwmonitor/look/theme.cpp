#include "theme.h"

#include <QApplication>
#include <QEvent>
#include <QStyleFactory>

#include <array>

namespace JwMonitor {

namespace {

using Colours = std::array<QRgb, Theme::RoleCount>;

// The colours are in the order of Theme::Role. Text in each of them is readable, because its contrast with the
// background is at least 4.5 to 1. The only exception is Grid, a colour for lines.
constexpr Colours lightColours{0x1a7f37, 0xc4282d, 0x8a6100, 0x0b5fc4, 0x1a7f37, 0x636b74,
                               0xd8dce1, 0x0b5fc4, 0xb04a00, 0x1a7f37, 0x8038b5};
constexpr Colours darkColours{0x5dcb78, 0xff7b72, 0xe5b53c, 0x6cb0ff, 0x5dcb78, 0x98a1ac,
                              0x3c434c, 0x6cb0ff, 0xffa057, 0x5dcb78, 0xd2a8ff};

QPalette makePalette(bool dark)
{
    const QColor window(dark ? 0x22262b : 0xf4f5f7);
    const QColor base(dark ? 0x1a1d21 : 0xffffff);
    const QColor alternate(dark ? 0x20242a : 0xf4f6f9);
    const QColor text(dark ? 0xe4e7eb : 0x1c2026);
    const QColor button(dark ? 0x2e343b : 0xe9ebee);
    const QColor highlight(dark ? 0x2b62a8 : 0x0b5fc4);
    const QColor faint(dark ? 0x79828d : 0x8d949c);

    QPalette palette(button, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, alternate);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::ToolTipBase, dark ? button : base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, QColor((dark ? darkColours : lightColours)[Theme::Quiet]));
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(dark ? 0x6cb0ff : 0x0b5fc4));
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faint);
    palette.setColor(QPalette::Disabled, QPalette::Highlight, button);
    return palette;
}

} // namespace

void Theme::apply(QApplication &app, Palette palette)
{
    app.setStyle(QStyleFactory::create(QStringLiteral("Fusion"))); // other styles ignore parts of the palette
    app.setPalette(makePalette(palette == Palette::Dark));
    // Qt 6 informs the widgets by a posted event. Send it now, so that no widget is painted in the old colours.
    QApplication::sendPostedEvents(nullptr, QEvent::ApplicationPaletteChange);
}

Theme::Palette Theme::of(const QPalette &palette)
{
    return palette.color(QPalette::Base).lightness() < 128 ? Palette::Dark : Palette::Light;
}

QColor Theme::colour(const QPalette &palette, Role role)
{
    const Colours &colours = of(palette) == Palette::Dark ? darkColours : lightColours;
    return QColor(colours[role]);
}

} // namespace JwMonitor
