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
    if (isShown("AUTHTAB"))
        tellReader("T2", "NAMES", "T3", "CODELABEL");
    if (isShown("SHOW_LIMIT"))
        tellReaderOnce("LIMIT");
}

// The organisation's own words on whom to ask.
function setHelp(help) {
    byId("HELPLABEL").textContent = help.label;
    byId("HELPTEXT").textContent = help.text;
    removeClass(byId("HELP"), "hide");
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

// The engine tells readers nothing of what appears, and of the code field's focus so that some of
// them say nothing. So the window says what stands in these elements.
function tellReader(...ids) {
    postToReader(ids.map(sentenceIn).join(" "), false);
}

// Not again before the window closes, whatever pages come.
function tellReaderOnce(...ids) {
    postToReader(ids.map(sentenceIn).join(" "), true);
}

function postToReader(words, once) {
    window.webkit.messageHandlers.reader?.postMessage({ words: words.trim(), once });
}

function sentenceIn(id) {
    const text = isShown(id) ? byId(id).innerText.trim().replace(/\s+/g, " ") : "";
    return text.replace(/[^.!?:…。！？：]$/u, "$&.");
}

function onAlertChange() {
    const code = byId("PASSCODE");
    if (!isShown("ALERT")) {
        code.removeAttribute("aria-invalid");
        return;
    }
    drawDigits(); // The agent has emptied the field.
    onAnswer();
    code.setAttribute("aria-invalid", "true");
    code.focus({ preventScroll: true });
    byId(isShown("WAIT") ? "WAIT" : "ALERT").scrollIntoView({ block: "nearest" });
    tellReader("ALERTDATA", "WAIT");
}

// One slot per digit; a number that does not fit gets a plain field.
function onDigitsChange() {
    const code = byId("PASSCODE");
    const digits = Number(code.getAttribute("maxlength"));
    const fits = digits >= 1 && digits <= 10;
    code.parentElement.classList.toggle("slots", fits);
    if (fits)
        code.parentElement.style.setProperty("--digits", digits);
}

// Said at these moments and not each second.
const toldSeconds = [120, 60, 30, 10];

function onTick() {
    const [shownMinutes, shownSeconds] = byId("timer").textContent.split(":").map(Number);
    const left = shownMinutes * 60 + shownSeconds;
    byId("TIMERDIV").classList.toggle("last", left <= 30);
    if (!toldSeconds.includes(left))
        return;
    const words = byId("TIMERLABEL").textContent + ": " +
        spanInWords(document.documentElement.lang, left) + ".";
    // After what a view that has just come says for itself.
    setTimeout(() => postToReader(words, left === 120), 500);
}

function onChooseShown() {
    document.querySelector("#RADIOGROUP input:checked")?.focus();
}

// The count-down writes this view each second from then on; a time that runs out is told once.
function onExpiry() {
    if (isShown("ERRORTAB") && !entry.isOver) {
        entry.isOver = true;
        tellReader("ERRORMSG1", "ERRORMSG2", "HELPLABEL", "HELPTEXT");
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
    const isForCode = document.activeElement === document.body && event.key.length === 1;
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
