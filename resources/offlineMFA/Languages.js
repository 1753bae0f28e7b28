"use strict";

// What the page says on its own account. The agent hands over ten texts and no language, so the page
// knows its language by the heading of the choose view, which is another one in every language.
// `wait` has one form for each plural category that the language's whole numbers take.
const languages = {
    en: {
        heading: "How would you like to verify?",
        wait: {
            one: "You can type the next code in %N% second.",
            other: "You can type the next code in %N% seconds.",
        },
    },
    de: {
        heading: "Wie möchten Sie Ihre Identität bestätigen?",
        wait: {
            one: "In %N% Sekunde können Sie den nächsten Code eingeben.",
            other: "In %N% Sekunden können Sie den nächsten Code eingeben.",
        },
    },
    fr: {
        heading: "Comment confirmer votre identité\u00a0?",
        wait: {
            one: "Vous pourrez saisir un nouveau code dans %N% seconde.",
            many: "Vous pourrez saisir un nouveau code dans %N% secondes.",
            other: "Vous pourrez saisir un nouveau code dans %N% secondes.",
        },
    },
    es: {
        heading: "¿Cómo desea verificar su identidad?",
        wait: {
            one: "Podrá escribir otro código dentro de %N% segundo.",
            many: "Podrá escribir otro código dentro de %N% segundos.",
            other: "Podrá escribir otro código dentro de %N% segundos.",
        },
    },
    it: {
        heading: "Come desidera verificare la Sua identità?",
        wait: {
            one: "Potrà inserire un nuovo codice tra %N% secondo.",
            many: "Potrà inserire un nuovo codice tra %N% secondi.",
            other: "Potrà inserire un nuovo codice tra %N% secondi.",
        },
    },
    pt: {
        heading: "Como deseja confirmar sua identidade?",
        wait: {
            one: "Você poderá digitar outro código em %N% segundo.",
            many: "Você poderá digitar outro código em %N% segundos.",
            other: "Você poderá digitar outro código em %N% segundos.",
        },
    },
    nl: {
        heading: "Hoe wilt u uw identiteit bevestigen?",
        wait: {
            one: "U kunt over %N% seconde een nieuwe code invoeren.",
            other: "U kunt over %N% seconden een nieuwe code invoeren.",
        },
    },
    pl: {
        heading: "Jak chcesz potwierdzić swoją tożsamość?",
        wait: {
            one: "Następny kod można wpisać za %N% sekundę.",
            few: "Następny kod można wpisać za %N% sekundy.",
            many: "Następny kod można wpisać za %N% sekund.",
            other: "Następny kod można wpisać za %N% sekundy.",
        },
    },
    sv: {
        heading: "Hur vill du bekräfta din identitet?",
        wait: {
            one: "Du kan skriva nästa kod om %N% sekund.",
            other: "Du kan skriva nästa kod om %N% sekunder.",
        },
    },
    ja: {
        heading: "本人確認の方法を選んでください",
        wait: { other: "%N% 秒後に\u200b次の\u200bコードを\u200b入力できます。" },
    },
    ko: {
        heading: "어떤 방법으로 본인 확인을 하시겠습니까?",
        wait: { other: "%N%초 후에 다음 코드를 입력할 수 있습니다." },
    },
    "zh-Hans": {
        heading: "您想如何验证身份？",
        wait: { other: "%N% 秒后可以输入下一个验证码。" },
    },
    ar: {
        heading: "كيف تريد التحقق من هويتك؟",
        wait: {
            zero: "يمكنك إدخال الرمز التالي الآن.",
            one: "يمكنك إدخال الرمز التالي بعد ثانية واحدة.",
            two: "يمكنك إدخال الرمز التالي بعد ثانيتين.",
            few: "يمكنك إدخال الرمز التالي بعد %N% ثوانٍ.",
            many: "يمكنك إدخال الرمز التالي بعد %N% ثانية.",
            other: "يمكنك إدخال الرمز التالي بعد %N% ثانية.",
        },
    },
    he: {
        heading: "איך תרצו לאמת את זהותכם?",
        wait: {
            one: "אפשר להקליד את הקוד הבא בעוד שנייה אחת.",
            two: "אפשר להקליד את הקוד הבא בעוד שתי שניות.",
            many: "אפשר להקליד את הקוד הבא בעוד %N% שניות.",
            other: "אפשר להקליד את הקוד הבא בעוד %N% שניות.",
        },
    },
};

const rightToLeft = ["ar", "he"];

// Invisible marks for line breaks are no part of a language's sign.
function languageOf(heading) {
    const bare = heading.replaceAll("\u200b", "");
    return Object.keys(languages).find((tag) => languages[tag].heading === bare) ?? "en";
}

// How long to wait, as a sentence.
function waitSentence(language, seconds) {
    const forms = languages[language].wait;
    const category = new Intl.PluralRules(language).select(seconds);
    return (forms[category] ?? forms.other).replace("%N%", seconds);
}

// A span of whole minutes or seconds in words, with the digits of the count-down.
function spanInWords(language, seconds) {
    const unit = seconds % 60 === 0 ? "minute" : "second";
    const form = { style: "unit", unit, unitDisplay: "long" };
    return new Intl.NumberFormat(language + "-u-nu-latn", form)
        .format(unit === "minute" ? seconds / 60 : seconds);
}
