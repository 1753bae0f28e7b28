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
    const heading = i18nText.IDS_MFA_OFFLINE_HTML_T1 ?? "";
    document.documentElement.dir = /[\u0590-\u08ff]/.test(heading) ? "rtl" : "ltr";
    // The one language that a text gives away; fonts and voices differ for it.
    if (/[\u3040-\u30ff]/.test(heading))
        document.documentElement.lang = "ja";
    showFullTime();
}

// Until the count-down's first second is over; without a count-down there is nothing to show.
function showFullTime() {
    const timer = byId("timer");
    if (typeof minutes === "undefined")
        addClass(byId("TIMERDIV"), "hide");
    else if (timer.textContent === "")
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

// Emptied first, so that the same words are read out again.
function announce(text) {
    const region = byId("ANNOUNCEMENT");
    region.textContent = "";
    setTimeout(() => { region.textContent = text; }, 100);
}

function onAlertChange() {
    const code = byId("PASSCODE");
    if (!isShown("ALERT")) {
        code.removeAttribute("aria-invalid");
        return;
    }
    code.setAttribute("aria-invalid", "true");
    code.focus();
    byId("ALERT").scrollIntoView({ block: "nearest" });
    announce(byId("ALERTDATA").textContent);
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

function onTick() {
    const text = byId("timer").textContent;
    const isLast = /^00:[0-2]/.test(text) || text === "00:30";
    byId("TIMERDIV").classList.toggle("last", isLast);
    if (text === "00:30")
        byId("TIMENOTICE").textContent = byId("TIMERLABEL").textContent + " " + text;
}

function onChooseShown() {
    document.querySelector("#RADIOGROUP input:checked")?.focus();
}

// The custom logo may be absent or no image; the product's own stays then.
const ownLogo = byId("PRODUCTLOGO").getAttribute("src");
byId("PRODUCTLOGO").addEventListener("error", (event) => {
    if (event.target.getAttribute("src") !== ownLogo)
        event.target.src = ownLogo;
});

byId("AUTHFORM").addEventListener("submit", (event) => {
    event.preventDefault();
    post({ METHOD: "onButtonOK", PASSCODE: byId("PASSCODE").value });
});
byId("CHOOSEFORM").addEventListener("submit", (event) => {
    event.preventDefault();
    post({ METHOD: "onButtonChoose" });
});
// Neither name is an action of the agent, which so takes the message as the end of the request.
for (const button of document.querySelectorAll("[data-action=cancel]"))
    button.addEventListener("click", () => post({ METHOD: "onButtonCancel" }));
byId("Exit").addEventListener("click", () => post({ METHOD: "onButtonExit" }));

byId("PASSCODE").addEventListener("input", () => addClass(byId("ALERT"), "hide"));
byId("RADIOGROUP").addEventListener("change", iradio);

watch("ALERT", { attributes: true, childList: true, subtree: true }, onAlertChange);
watch("PASSCODE", { attributeFilter: ["maxlength"] }, onDigitsChange);
watch("timer", { childList: true }, onTick);
watch("CHOOSETAB", { attributeFilter: ["class"] }, onChooseShown);
