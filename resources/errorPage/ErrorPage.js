"use strict";

// What stands around an error's message on the blank page. The message itself is written by the
// agent, as it stands, into the element that waits for it here; so before it comes, the page is told
// to run and to load nothing that markup in it may name.
function drawErrorFrame(words, style) {
    const root = document.documentElement;
    root.lang = words.language;
    root.dir = words.direction;
    document.title = words.title;
    const policy = element("meta", {
        "http-equiv": "Content-Security-Policy",
        content: "default-src 'none'; base-uri 'none'; form-action 'none'",
    });
    document.head.append(policy, element("meta", { name: "color-scheme", content: "light dark" }));
    const sheet = new CSSStyleSheet();
    sheet.replaceSync(style);
    document.adoptedStyleSheets = [sheet];

    // All of it appears at once, so that a reader speaks of all of it.
    const alert = element("div", { role: "alert" },
        warningSign(), element("h1", {}, words.title),
        element("div", { id: "nativeErrDiv", ...words.message }),
        ...paragraph("advice", words.advice), ...paragraph("ask", words.ask), ...help(words.help));
    if (words.messageIsDetail)
        alert.append(alert.querySelector("#nativeErrDiv"));
    const buttons = element("div", { class: "buttons" }, ...words.buttons.map(({ label, link }) => {
        const button = element("button", { type: "button" }, label);
        // The agent acts when it is asked whether this may be opened.
        button.addEventListener("click", () => location.assign(link));
        return button;
    }));
    buttons.firstElementChild.classList.add("primary");
    document.body.replaceChildren(
        element("header", {}, element("div", { class: "brand" },
                                      element("span", { class: "wordmark" }, "QUORL"))),
        element("main", { hidden: "" }, element("section", { class: "error" }, alert, buttons)));
    closeOnEscape(words.buttons.at(-1).link);
}

// Gives what a reader is to say of it.
function showErrorFrame() {
    document.querySelector("main").hidden = false;
    document.querySelector("button").focus({ preventScroll: true });
    return document.querySelector("[role=alert]").innerText.replace(/\s*\n\s*/g, "\n")
        .replace(/[^.!?:…。！？：\s]$/gmu, "$&.").replaceAll("\n", " ").trim();
}

function element(name, attributes, ...children) {
    const made = document.createElement(name);
    for (const [key, value] of Object.entries(attributes))
        made.setAttribute(key, value);
    made.append(...children);
    return made;
}

function paragraph(name, text) {
    return text ? [element("p", { class: name }, text)] : [];
}

// The organisation's words may be in any language, over several lines.
function help(words) {
    return words ? [element("div", { class: "help" }, element("strong", {}, words.label),
                            element("p", { dir: "auto" }, words.text))] : [];
}

function warningSign() {
    const svg = (name, attributes) => {
        const made = document.createElementNS("http://www.w3.org/2000/svg", name);
        for (const [key, value] of Object.entries(attributes))
            made.setAttribute(key, value);
        return made;
    };
    const sign = svg("svg", { class: "sign", viewBox: "0 0 48 48", "aria-hidden": "true" });
    sign.append(svg("path", { d: "M24 6 44 41H4z" }), svg("path", { d: "M24 19v11" }),
                svg("path", { d: "M24 35.5v.01" }));
    return sign;
}

// When it is let go: a window that closes while the key is down loses the first key that is typed
// into the next one. A key that went down before the page came is none of its business.
function closeOnEscape(link) {
    let isDown = false;
    document.addEventListener("keydown", (event) => {
        isDown ||= event.key === "Escape";
    });
    document.addEventListener("keyup", (event) => {
        if (event.key === "Escape" && isDown)
            location.assign(link);
    });
}
