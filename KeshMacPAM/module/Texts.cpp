#include "Texts.h"

#include "TextParts.h"

namespace quorl::pam {
namespace {

struct Wording {
    std::string_view language;
    const char* cannotVerify;
    const char* tooLate;
};

constexpr Wording wordings[] = {
    {"en",
     "The second sign-in step cannot be carried out on this computer now. Please tell your "
     "administrator. Press Return. ",
     "That took too long. Please start the sign-in again. Press Return. "},
    {"de",
     "Der zweite Anmeldeschritt ist auf diesem Computer gerade nicht möglich. Bitte wenden Sie "
     "sich an "
     "Ihre Administration. Drücken Sie die Eingabetaste. ",
     "Das hat zu lange gedauert. Bitte beginnen Sie die Anmeldung neu. Drücken Sie die "
     "Eingabetaste. "},
    {"fr",
     "La deuxième étape de connexion est impossible sur cet ordinateur pour le moment. Prévenez "
     "votre "
     "administrateur. Appuyez sur Entrée. ",
     "Le délai est dépassé. Veuillez recommencer la connexion. Appuyez sur Entrée. "},
    {"es",
     "El segundo paso del inicio de sesión no es posible ahora en este equipo. Avise a su "
     "administrador. Pulse Intro. ",
     "Ha tardado demasiado. Vuelva a iniciar la sesión. Pulse Intro. "},
    {"it",
     "Il secondo passaggio dell'accesso non è possibile ora su questo computer. Si rivolga "
     "all'amministratore. Prema Invio. ",
     "È passato troppo tempo. Ricominci l'accesso. Prema Invio. "},
    {"pt",
     "A segunda etapa do início de sessão não é possível agora neste computador. Avise o "
     "administrador. "
     "Prima Enter. ",
     "Demorou demasiado. Inicie a sessão de novo. Prima Enter. "},
    {"nl",
     "De tweede aanmeldstap is nu niet mogelijk op deze computer. Neem contact op met uw "
     "beheerder. "
     "Druk op Enter. ",
     "Dat duurde te lang. Begin opnieuw met aanmelden. Druk op Enter. "},
    {"pl",
     "Drugi krok logowania nie jest teraz możliwy na tym komputerze. Skontaktuj się z "
     "administratorem. "
     "Naciśnij Enter. ",
     "Trwało to zbyt długo. Rozpocznij logowanie od nowa. Naciśnij Enter. "},
    {"sv",
     "Det andra inloggningssteget går inte att utföra på den här datorn just nu. Kontakta din "
     "administratör. Tryck på Retur. ",
     "Det tog för lång tid. Börja om inloggningen. Tryck på Retur. "},
    {"ja",
     "このコンピューターでは現在、2 "
     "段階目のサインインを行えません。管理者に連絡してください。Enter "
     "キーを押してください。",
     "時間切れです。サインインをやり直してください。Enter キーを押してください。"},
    {"ko",
     "지금은 이 컴퓨터에서 2단계 로그인을 할 수 없습니다. 관리자에게 문의하세요. Enter 키를 "
     "누르세요. ",
     "시간이 초과되었습니다. 로그인을 다시 시작하세요. Enter 키를 누르세요. "},
    {"zh", "此计算机目前无法进行第二步登录。请联系管理员。请按回车键。",
     "时间已到。请重新登录。请按回车键。"},
    {"ar",
     "تتعذر الآن الخطوة الثانية لتسجيل الدخول على هذا الكمبيوتر. يُرجى إبلاغ المسؤول. اضغط على "
     "Enter. ",
     "استغرق ذلك وقتًا طويلاً. يُرجى بدء تسجيل الدخول من جديد. اضغط على Enter. "},
    {"he", "השלב השני של הכניסה אינו אפשרי כעת במחשב זה. יש לפנות למנהל המערכת. יש להקיש Enter. ",
     "זה ארך זמן רב מדי. יש להתחיל את הכניסה מחדש. יש להקיש Enter. "},
};

bool between(char c, char first, char last) {
    return c >= first && c <= last;
}

}  // namespace

const char* textFor(Text text, std::string_view locale) {
    const Wording* found = wordings;
    // A locale without UTF-8 cannot show the other wordings' letters.
    if (endsWith(locale, ".UTF-8"))
        for (const Wording& wording : wordings)
            if (startsWith(locale, wording.language) && !between(locale[2], 'a', 'z'))
                found = &wording;
    switch (text) {
        case Text::CannotVerify:
            return found->cannotVerify;
        case Text::TooLate:
            return found->tooLate;
    }
    return found->cannotVerify;
}

bool isLocale(std::string_view value) {
    std::size_t letters = 0;
    while (letters < value.size() && between(value[letters], 'a', 'z'))
        ++letters;
    if (letters < 2 || letters > 3)
        return false;
    value.remove_prefix(letters);
    if (value.size() >= 3 && value[0] == '_' && between(value[1], 'A', 'Z') &&
        between(value[2], 'A', 'Z'))
        value.remove_prefix(3);
    return value.empty() || value == ".UTF-8";
}

}  // namespace quorl::pam
