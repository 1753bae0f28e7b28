"""What is wrong with a page's layout: measured by a script in the page, colours by its pixels."""
import struct

# Texts that are cut or leave their box, overlap another one, or stand outside; controls too small.
MEASURE = r"""
const faults = [];
const isVisible = (e) => e.checkVisibility() && !e.closest(".hide");
const lines = (e) => {
    const range = document.createRange();
    return [...e.childNodes].filter((n) => n.nodeType === 3 && n.textContent.trim())
        .flatMap((n) => { range.selectNodeContents(n); return [...range.getClientRects()]; })
        .filter((r) => r.width > 1);
};
const meet = (a, b) => Math.min(a.right, b.right) - Math.max(a.left, b.left) > 1.5 &&
    Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top) > 4;
const name = (e) => (e.id || e.className || e.tagName) + " '" + e.textContent.trim().slice(0, 24) + "'";
const root = document.scrollingElement;
// Buttons that keep to the lower edge cover what is scrolled under them, until all of it has been.
root.scrollTop = root.scrollHeight;
const all = [...document.body.querySelectorAll("*")].filter(isVisible);
const texts = all.map((e) => ({ e, lines: lines(e) })).filter((t) => t.lines.length);
const boxes = all.filter((e) => e.matches("button, .code, .radio-inline, #ALERT, .help, img, svg"));
root.scrollLeft = getComputedStyle(root).direction === "rtl" ? -50 : 50;
if (root.scrollLeft !== 0)
    faults.push("scrolls sideways by " + root.scrollLeft);
root.scrollLeft = 0;
for (const { e, lines } of texts) {
    const home = e.closest("button, .radio-inline, #ALERT, #SHOW_LIMIT, header, main").getBoundingClientRect();
    for (const line of lines) {
        if (line.left < home.left - 1 || line.right > home.right + 1 ||
            line.top < home.top - 2 || line.bottom > home.bottom + 2)
            faults.push(name(e) + " leaves its box");
        if (line.top + scrollY < -1)
            faults.push(name(e) + " is above the page");
    }
    for (const other of texts)
        if (other.e !== e && other.lines.some((b) => lines.some((a) => meet(a, b))))
            faults.push(name(e) + " overlaps " + name(other.e));
    for (const box of boxes)
        if (!box.contains(e) && lines.some((a) => meet(a, box.getBoundingClientRect())))
            faults.push(name(e) + " overlaps " + name(box));
}
for (const box of boxes.filter((e) => e.matches("button, .code, .radio-inline"))) {
    const { width, height } = box.getBoundingClientRect();
    if (Math.min(width, height) < 44)
        faults.push(name(box) + ` is ${width} by ${height}`);
}
const code = document.getElementById("PASSCODE");
if (code && isVisible(code)) {
    const before = code.value;
    code.value = "8".repeat(code.maxLength);
    if (code.scrollWidth > code.clientWidth + 1)
        faults.push("the code does not fit its field");
    code.value = before;
}
root.scrollTop = 0;
// What lies in view and under nothing, as the picture has it.
const inSight = (e, r) => [r.top + 1, r.bottom - 1].every((y) => {
    const hit = document.elementFromPoint((r.left + r.right) / 2, y);
    return !hit || e.contains(hit) || hit.contains(e);
});
const plain = (r) => [r.left, r.top, r.right, r.bottom];
return {
    faults,
    texts: texts.map((t) => ({ name: name(t.e), rects: lines(t.e).filter((r) => inSight(t.e, r)).map(plain) })),
    controls: boxes.filter((e) => e.matches("button, .code, .radio-inline"))
        .map((e) => ({ name: name(e), rects: [plain(e.getBoundingClientRect())] })),
    width: innerWidth, height: innerHeight };
"""


def luminance(pixel):
    blue, green, red, _ = struct.pack("<I", pixel)
    channel = lambda c: c / 3294.6 if c <= 10 else ((c / 255 + 0.055) / 1.055) ** 2.4
    return 0.2126 * channel(red) + 0.7152 * channel(green) + 0.0722 * channel(blue)


def ratio(one, other):
    """Contrast of two pixels (WCAG 2.1)."""
    light, dark = sorted((luminance(one), luminance(other)), reverse=True)
    return (light + 0.05) / (dark + 0.05)


class Pixels:
    def __init__(self, surface, page_width):
        self.width, self.height = surface.get_width(), surface.get_height()
        self.stride = surface.get_stride() // 4
        self.data = memoryview(surface.get_data()).cast("I")
        self.factor = self.width / page_width

    def region(self, rect, margin=0):
        """The rows of pixels in a rectangle of the page; empty unless it is all in view."""
        left, top, right, bottom = (round(value * self.factor) for value in rect)
        left, top, right, bottom = left - margin, top - margin, right + margin, bottom + margin
        if left < 0 or top < 0 or right > self.width or bottom > self.height:
            return []
        return [self.data[row * self.stride + left:row * self.stride + right].tolist()
                for row in range(top, bottom)]


def text_contrast(pixels, rect):
    """Between a line's background and what of it stands out most."""
    found = [pixel for row in pixels.region(rect) for pixel in row]
    if not found:
        return None
    ground = max(set(found), key=found.count)
    return max(ratio(ground, pixel) for pixel in set(found))


def control_contrast(pixels, rect):
    """Between a control's edge and what lies around it, about halfway up its left side."""
    rows = pixels.region(rect, margin=6)
    middle = len(rows) // 2
    # An edge may be dashed.
    edge = [pixel for row in rows[middle - 6:middle + 6] for pixel in row[:14]]
    return max((ratio(edge[0], pixel) for pixel in set(edge)), default=None)


def faults(stage, picture=None):
    """Everything wrong with what the stage shows, as sentences; colours only with a picture."""
    page = stage.script(MEASURE)
    wrong = page["faults"]
    if picture:
        pixels = Pixels(picture, page["width"])
        for kind, contrast, least in [("texts", text_contrast, 7), ("controls", control_contrast, 3)]:
            for item in page[kind]:
                values = [contrast(pixels, rect) for rect in item["rects"]]
                worst = min((value for value in values if value), default=least)
                if worst < least:
                    wrong.append(f"{item['name']} has a contrast of {worst:.2f}")
    return sorted(set(wrong))
