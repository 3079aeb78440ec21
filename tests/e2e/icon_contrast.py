"""How legible a tray icon is against its bar, judged from a screenshot.

The bar holds nothing but the tray, so the icon is whatever in the bar's rectangle
differs from the bar's colour; its legibility is the WCAG contrast of its pixels
against that colour. The best pixel alone is not enough (a few antialiased dots can
reach 3:1 on an icon nobody can read), so a legible icon also needs a share of its
box at 3:1 or more; thin strokes still clear that share, a stray dot does not.

    contrast = measure_icon(Image.open("shot.png"), (0, 0, 1280, 24), "#2b2b2b")
    print(contrast.summary())  # or measure_screenshot("shot.png", 24, "#2b2b2b")

Run as a script, it judges the screenshots named on its command line:
    icon_contrast.py --bar-colour '#2b2b2b' [--bar-height 24] shot.png...
"""

import argparse
import sys
from dataclasses import dataclass

from PIL import Image

LEGIBLE_RATIO = 3.0  # WCAG's minimum for graphical objects
LEGIBLE_SHARE = 0.15
# Above this a pixel is no longer the bar (compression and dithering stay well under it).
DIFFERS_FROM_BAR = 1.05


def _linear(channel):
    value = channel / 255
    return value / 12.92 if value <= 0.04045 else ((value + 0.055) / 1.055) ** 2.4


_LINEAR = [_linear(channel) for channel in range(256)]


def relative_luminance(rgb):
    red, green, blue = rgb[:3]
    return 0.2126 * _LINEAR[red] + 0.7152 * _LINEAR[green] + 0.0722 * _LINEAR[blue]


def contrast_ratio(first, second):
    """WCAG's contrast ratio of two luminances, from 1 (none) to 21."""
    lighter, darker = max(first, second), min(first, second)
    return (lighter + 0.05) / (darker + 0.05)


def parse_colour(colour):
    """(r, g, b) of "#rrggbb", or of an (r, g, b) given as it is."""
    if isinstance(colour, str):
        text = colour.lstrip("#")
        if len(text) != 6:
            raise ValueError(f"not a #rrggbb colour: {colour!r}")
        return tuple(int(text[i:i + 2], 16) for i in (0, 2, 4))
    return tuple(colour[:3])


@dataclass(frozen=True)
class IconContrast:
    box: tuple  # (left, top, right, bottom) in the image, right and bottom excluded; or None
    best: float  # the highest contrast of any pixel against the bar
    share: float  # of the box's pixels at LEGIBLE_RATIO or more

    @property
    def legible(self):
        return self.best >= LEGIBLE_RATIO and self.share >= LEGIBLE_SHARE

    def summary(self):
        if self.box is None:
            return "no icon: the bar holds nothing but its own colour"
        left, top, right, bottom = self.box
        return (f"icon {right - left}x{bottom - top} at {left},{top}: best contrast "
                f"{self.best:.2f}:1, {self.share:.0%} of its box at {LEGIBLE_RATIO:g}:1 or more"
                f" ({'legible' if self.legible else 'NOT legible'})")


def measure_icon(image, bar_box, bar_colour):
    """The icon's box and contrast in bar_box (left, top, right, bottom) of image, on a
    bar of bar_colour ("#rrggbb" or (r, g, b))."""
    left, top, right, bottom = bar_box
    bar = image.convert("RGB").crop(bar_box)
    width = right - left
    bar_luminance = relative_luminance(parse_colour(bar_colour))
    ratios = [contrast_ratio(relative_luminance(pixel), bar_luminance)
              for pixel in bar.getdata()]
    differing = [index for index, ratio in enumerate(ratios) if ratio > DIFFERS_FROM_BAR]
    if not differing:
        return IconContrast(None, 1.0, 0.0)
    xs = [index % width for index in differing]
    ys = [index // width for index in differing]
    x0, x1, y0, y1 = min(xs), max(xs) + 1, min(ys), max(ys) + 1
    in_box = [ratios[y * width + x] for y in range(y0, y1) for x in range(x0, x1)]
    share = sum(ratio >= LEGIBLE_RATIO for ratio in in_box) / len(in_box)
    return IconContrast((left + x0, top + y0, left + x1, top + y1), max(in_box), share)


def measure_screenshot(path, bar_height, bar_colour):
    """measure_icon() on a screenshot file of a screen whose bar is its top bar_height
    rows (or of the bar alone)."""
    with Image.open(path) as image:
        return measure_icon(image, (0, 0, image.width, bar_height), bar_colour)


def main():
    parser = argparse.ArgumentParser(description="Judges a tray icon's contrast in screenshots.")
    parser.add_argument("--bar-colour", required=True, help="the bar's colour, #rrggbb")
    parser.add_argument("--bar-height", type=int, default=24,
                        help="the bar's height in pixels, at the top of the screen")
    parser.add_argument("shots", nargs="+", help="screenshots of the whole screen")
    args = parser.parse_args()
    all_legible = True
    for shot in args.shots:
        contrast = measure_screenshot(shot, args.bar_height, args.bar_colour)
        print(f"{shot}: {contrast.summary()}")
        all_legible &= contrast.legible
    return 0 if all_legible else 1


if __name__ == "__main__":
    sys.exit(main())
