"use strict";

// The code field: what may be typed into it, when its code is sent, and how it slows down whoever
// tries codes by the dozen.

const freeTries = 3;
const longestRest = 30;
const answerDeadline = 5000;

const entry = {
    codesSent: 0,
    lastCode: "",
    isWaiting: false, // for the agent's answer
    waitTimer: 0,
    restEnd: 0, // all times on the steady clock, which no change of the machine's time moves
    restTimer: 0,
    expiry: Infinity,
    isOver: false,
};

// What stands at zero in the digits that keyboards of our languages type.
const zeros = [0xff10, 0x0660, 0x06f0];

// People and password managers put blanks, hyphens and invisible marks between digits.
function bareCode(text) {
    return text
        .replace(/[\s\p{Pd}\p{Cf}\u2212\u30fc]/gu, "")
        .replace(/[\uff10-\uff19\u0660-\u0669\u06f0-\u06f9]/g, (digit) => {
            const code = digit.charCodeAt(0);
            return code - zeros.find((zero) => code >= zero && code < zero + 10);
        });
}

// The field's maximum length counts digits, so what is no digit must not take the place of one.
function insertBare(field, text) {
    const { selectionStart: from, selectionEnd: to, value } = field;
    const room = field.maxLength < 0 ? Infinity : field.maxLength - (value.length - (to - from));
    field.setRangeText(bareCode(text).slice(0, Math.max(0, room)), from, to, "end");
    field.dispatchEvent(new InputEvent("input", { bubbles: true }));
}

function onBeforeInput(event) {
    if (event.data === null || event.isComposing || bareCode(event.data) === event.data)
        return;
    event.preventDefault();
    insertBare(event.target, event.data);
}

function onPaste(event) {
    event.preventDefault();
    if (!event.target.readOnly)
        insertBare(event.target, event.clipboardData.getData("text/plain"));
}

// The field hides what it holds, so its digits are drawn over it.
function drawDigits() {
    const digits = byId("DIGITS");
    digits.textContent = byId("PASSCODE").value;
    digits.scrollLeft = byId("PASSCODE").scrollLeft;
}

function tidyField(field) {
    const bare = bareCode(field.value);
    if (bare !== field.value)
        field.value = bare;
    drawDigits();
}

function sendCode() {
    if (isShown("ERRORTAB") || entry.isWaiting || entry.restEnd > performance.now())
        return;
    // A page that was held up counts down late; it takes no code for that.
    if (performance.now() > entry.expiry) {
        minutes = 0;
        sessionTimeOut();
        return;
    }
    const code = bareCode(byId("PASSCODE").value);
    if (code !== "")
        ++entry.codesSent;
    entry.isWaiting = true;
    entry.waitTimer = setTimeout(onAnswer, answerDeadline);
    entry.lastCode = code;
    addClass(byId("ALERT"), "hide");
    post({ METHOD: "onButtonOK", PASSCODE: code });
}

// The agent showed its alert, or said nothing for long: the code was not taken.
function onAnswer() {
    if (!entry.isWaiting)
        return;
    clearTimeout(entry.waitTimer);
    entry.isWaiting = false;
    if (entry.lastCode !== "" && entry.codesSent >= freeTries)
        rest(Math.min(2 ** (entry.codesSent - freeTries + 1), longestRest));
}

function rest(seconds) {
    entry.restEnd = performance.now() + seconds * 1000;
    byId("PASSCODE").readOnly = true;
    byId("CONTINUE").setAttribute("aria-disabled", "true");
    removeClass(byId("WAIT"), "hide");
    showRest();
    entry.restTimer = setInterval(showRest, 200);
}

function showRest() {
    const left = Math.ceil((entry.restEnd - performance.now()) / 1000);
    if (left > 0 && !isShown("ERRORTAB")) {
        const sentence = waitSentence(document.documentElement.lang, left);
        if (byId("WAIT").textContent !== sentence)
            byId("WAIT").textContent = sentence;
        return;
    }
    clearInterval(entry.restTimer);
    byId("PASSCODE").readOnly = false;
    byId("CONTINUE").removeAttribute("aria-disabled");
    addClass(byId("WAIT"), "hide");
    if (!isShown("ERRORTAB"))
        tellReader("CODELABEL");
}

byId("AUTHFORM").addEventListener("submit", (event) => {
    event.preventDefault();
    sendCode();
});
byId("AUTHFORM").addEventListener("keydown", (event) => {
    // A key held down is one press.
    if (event.key === "Enter" && event.repeat)
        event.preventDefault();
});
byId("PASSCODE").addEventListener("beforeinput", onBeforeInput);
byId("PASSCODE").addEventListener("paste", onPaste);
byId("PASSCODE").addEventListener("compositionend", (event) => tidyField(event.target));
byId("PASSCODE").addEventListener("input", () => addClass(byId("ALERT"), "hide"));
byId("PASSCODE").addEventListener("input", drawDigits);
// The cursor takes the text along where there is more of it than room.
document.addEventListener("selectionchange", drawDigits);
// Said when the view came; whoever comes back to the field hears it again.
byId("PASSCODE").addEventListener("blur", (event) =>
    event.target.setAttribute("aria-describedby", "ALERTDATA WAIT T3"));
document.querySelector(".code").addEventListener("click", () => byId("PASSCODE").focus());
