"use strict";

// The page of the offline verification. The agent fills it by short scripts, by element id, and
// shows a view by removing its class attribute; the page answers on the MACLoginAgent channel.

function addClass(element, name) {
    element.classList.add(name);
}

function removeClass(element, name) {
    element.classList.remove(name);
}

// Marks the row of the selected method. A click on a row's label lands here before it has
// selected anything, and again once it has.
function iradio() {
    for (const input of document.querySelectorAll("#RADIOGROUP input"))
        input.parentElement.classList.toggle("checked", input.checked);
}

// Puts the static texts into their elements. i18nText and minutes are set by the agent.
function loadResources() {
    for (const element of document.querySelectorAll("[data-text]"))
        element.textContent = i18nText[element.dataset.text] ?? "";
    const root = document.documentElement;
    root.lang = languageOf(i18nText.IDS_MFA_OFFLINE_HTML_T1 ?? "");
    root.dir = rightToLeft.includes(root.lang) ? "rtl" : "ltr";
    startTime();
}

// The organisation's own words on whom to ask.
function setHelp(help) {
    const block = byId("HELP");
    block.querySelector("strong").textContent = help.label;
    block.querySelector("p").textContent = help.text;
    removeClass(block, "hide");
}

// The full time until the count-down's first second is over; without a count-down there is nothing
// to show.
function startTime() {
    const timer = byId("timer");
    if (typeof minutes === "undefined") {
        addClass(byId("TIMERDIV"), "hide");
        return;
    }
    entry.expiry = performance.now() + (minutes * 60 + 1) * 1000;
    if (timer.textContent === "")
        timer.textContent = String(minutes).padStart(2, "0") + ":00";
}

function byId(id) {
    return document.getElementById(id);
}

function post(message) {
    window.webkit.messageHandlers.MACLoginAgent.postMessage(JSON.stringify(message));
}

function watch(id, options, react) {
    new MutationObserver(react).observe(byId(id), options);
}

function isShown(id) {
    return !byId(id).classList.contains("hide");
}

// Where the engine tells readers nothing of what appears, the window does.
function tellReader(text) {
    window.webkit.messageHandlers.reader?.postMessage(text);
}

// At once, over whatever is being read. Each time an element of its own that comes with its words:
// readers speak of one that appears, and not of a change in one.
function announce(text) {
    const words = document.createElement("p");
    words.setAttribute("role", "alert");
    words.textContent = text;
    byId("ANNOUNCEMENT").replaceChildren(words);
    tellReader(text);
}

// When nothing else is being read; a notice that waits its turn is kept.
function notice(text) {
    const region = byId("NOTICE");
    const line = document.createElement("p");
    line.textContent = text;
    setTimeout(() => region.append(line), 100);
    setTimeout(() => line.remove(), 10000);
    tellReader(text);
}

// Readers that know no alerts of pages read what gets the focus, so it goes to the alert and back. The
// first key brings it back before, and is kept.
function visitAlert(field) {
    byId("ALERT").focus({ preventScroll: true });
    setTimeout(() => {
        if (document.activeElement === byId("ALERT"))
            field.focus();
    }, 800);
}

function onAlertChange() {
    const code = byId("PASSCODE");
    if (!isShown("ALERT")) {
        code.removeAttribute("aria-invalid");
        return;
    }
    onAnswer();
    code.setAttribute("aria-invalid", "true");
    code.setAttribute("aria-describedby", "ALERTDATA WAIT T3");
    visitAlert(code);
    byId(isShown("WAIT") ? "WAIT" : "ALERT").scrollIntoView({ block: "nearest" });
    if (isShown("WAIT"))
        announce(byId("WAIT").textContent);
}

// One slot per digit; a number that does not fit gets a plain field.
function onDigitsChange() {
    const code = byId("PASSCODE");
    const digits = Number(code.getAttribute("maxlength"));
    const fits = digits >= 1 && digits <= 10;
    code.classList.toggle("slots", fits);
    if (fits)
        code.style.setProperty("--digits", digits);
}

// Said at these moments and not each second.
const toldSeconds = [120, 60, 30, 10];

function onTick() {
    const [shownMinutes, shownSeconds] = byId("timer").textContent.split(":").map(Number);
    const left = shownMinutes * 60 + shownSeconds;
    byId("TIMERDIV").classList.toggle("last", left <= 30);
    if (toldSeconds.includes(left))
        notice(byId("TIMERLABEL").textContent + ": " +
               spanInWords(document.documentElement.lang, left));
}

function onChooseShown() {
    document.querySelector("#RADIOGROUP input:checked")?.focus();
}

// The count-down writes this view each second from then on; a time that runs out is told once.
function onExpiry() {
    if (isShown("ERRORTAB") && !entry.isOver) {
        entry.isOver = true;
        announce(byId("ERRORMSG1").textContent + " " + byId("ERRORMSG2").textContent);
    }
}

// The custom logo may be absent or no image; the product's own stays then.
const ownLogo = byId("PRODUCTLOGO").getAttribute("src");
byId("PRODUCTLOGO").addEventListener("error", (event) => {
    if (event.target.getAttribute("src") !== ownLogo)
        event.target.src = ownLogo;
});

byId("CHOOSEFORM").addEventListener("submit", (event) => {
    event.preventDefault();
    post({ METHOD: "onButtonChoose" });
});
// Neither name is an action of the agent, which so takes the message as the end of the request.
for (const button of document.querySelectorAll("[data-action=cancel]"))
    button.addEventListener("click", () => post({ METHOD: "onButtonCancel" }));
byId("Exit").addEventListener("click", () => post({ METHOD: "onButtonExit" }));
// Escape works when it is let go: a window that closes while the key is down loses the first key that
// is typed into the next one. A key that went down before the page came is none of its business.
let isEscapeDown = false;
document.addEventListener("keydown", (event) => {
    // A code that is typed before the field has the focus is for the field all the same.
    const isForCode = document.activeElement === byId("ALERT") ||
        (document.activeElement === document.body && event.key.length === 1);
    if (isForCode && isShown("AUTHTAB"))
        byId("PASSCODE").focus();
    if (event.key === "Escape" && !event.isComposing)
        isEscapeDown = true;
});
document.addEventListener("keyup", (event) => {
    if (event.key === "Escape" && isEscapeDown)
        post({ METHOD: isShown("ERRORTAB") ? "onButtonExit" : "onButtonCancel" });
});

byId("RADIOGROUP").addEventListener("change", iradio);

watch("ALERT", { attributes: true, childList: true, subtree: true }, onAlertChange);
watch("PASSCODE", { attributeFilter: ["maxlength"] }, onDigitsChange);
watch("timer", { childList: true }, onTick);
watch("CHOOSETAB", { attributeFilter: ["class"] }, onChooseShown);
watch("ERRORTAB", { attributeFilter: ["class"] }, onExpiry);
