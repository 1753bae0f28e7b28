#!/usr/bin/python3
"""What the offline page does with keys, codes and time. Keys come through the X server."""
import json
import sys
import time
import unittest

import page_stage
from page_stage import PageStage

SENT = "onButtonOK"


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.display = page_stage.screen()
        cls.display.__enter__()
        cls.stage = PageStage(size=(896, 525))

    @classmethod
    def tearDownClass(cls):
        cls.display.__exit__(None, None, None)

    def setUp(self):
        self.stage.answer = lambda message: None

    def show(self, view="verify", **options):
        self.stage.show(view, **options)
        self.stage.spin(0.2)

    def refuse_all(self):
        self.stage.answer = lambda message: self.stage.glib.idle_add(
            lambda: self.stage.refuse() and False)

    def codes(self):
        return [m["PASSCODE"] for m in self.stage.messages if m["METHOD"] == SENT]

    def value(self, script):
        return self.stage.script("return " + script)

    def rests(self):
        return self.value("byId('PASSCODE').readOnly")

    def test_codes_lose_what_people_put_between_digits_and_keep_their_zeros(self):
        for typed, sent in [("123 456", "123456"), ("012-345", "012345"), ("000 000", "000000"),
                            ("１２３４５６", "123456"), ("１２３－４５６", "123456"),
                            ("٠١٢٣٤٥", "012345"), ("123\u2011456\n", "123456"),
                            ("\u202a123\u00a0456\u202c", "123456"), ("12a456", "12a456"),
                            ("1234567890", "123456"), ("   ", "")]:
            with self.subTest(typed):
                self.show()
                self.stage.script(f"""const data = new DataTransfer();
                    data.setData("text/plain", {json.dumps(typed)});
                    byId("PASSCODE").dispatchEvent(new ClipboardEvent("paste",
                        {{ clipboardData: data, cancelable: true }}));""")
                self.assertEqual(self.codes(), [], "a paste alone sends nothing")
                self.stage.press("Return")
                self.assertEqual(self.codes(), [sent])

    def test_typed_separators_take_no_digits_place(self):
        self.show()
        self.stage.type("012 345-67")
        self.assertEqual(self.value("byId('DIGITS').textContent"), "012345")
        self.stage.press("Return")
        self.assertEqual(self.codes(), ["012345"])

    def test_one_code_is_sent_once(self):
        self.show()
        self.stage.press(*"123456", "Return", "Return", "Return")
        self.assertEqual(self.codes(), ["123456"])

    def test_the_field_rests_from_the_third_wrong_code_on(self):
        self.show()
        self.refuse_all()
        for number, rest in [(1, 0), (2, 0), (3, 2), (4, 4)]:
            self.stage.enter("111111")
            began = time.monotonic()
            self.assertEqual(len(self.codes()), number)
            self.assertEqual(self.rests(), rest > 0)
            if rest:
                self.assertIn(f"{rest} seconds", self.value("byId('WAIT').textContent"))
                self.stage.window.resize(800 + number, 500)
                # Keys of the rest are lost, not kept for later.
                while self.value("entry.restEnd - performance.now()") > 1500:
                    self.stage.enter("22")
                self.assertTrue(self.stage.spin(rest, lambda: not self.rests()))
                self.assertGreater(time.monotonic() - began, rest - 0.5)
                self.assertLess(time.monotonic() - began, rest + 4)
                self.assertEqual(self.codes(), ["111111"] * number)
                self.assertEqual(self.value("byId('PASSCODE').value + byId('DIGITS').textContent"), "")

    def test_an_empty_code_costs_no_rest_and_no_answer_gives_the_field_back(self):
        self.show()
        self.refuse_all()
        for _ in range(5):
            self.stage.press("Return")
        self.assertEqual(self.codes(), [""] * 5)
        self.assertFalse(self.rests())
        self.show()
        self.stage.answer = lambda message: None
        self.stage.enter("111111")
        self.stage.spin(5.5)
        self.stage.press("Return")
        self.assertEqual(len(self.codes()), 2)

    def test_a_page_that_ran_out_takes_no_code(self):
        self.show("expired")
        self.stage.script("byId('AUTHFORM').requestSubmit();")
        self.stage.press("Return")
        self.assertEqual([m["METHOD"] for m in self.stage.messages], ["onButtonExit"])
        # A page that was held up for longer than its time, so that it counted too few seconds.
        self.show()
        self.stage.script("entry.expiry = performance.now() - 1;")
        self.stage.enter("111111")
        self.assertEqual(self.stage.messages, [])
        self.assertTrue(self.value("isShown('ERRORTAB')"))

    def test_keys(self):
        focus = "document.activeElement.id || document.activeElement.textContent || " \
                "document.activeElement.value"
        for view, keys, element, methods in [
                ("verify", [], "PASSCODE", []),
                ("verify", ["Tab", "Tab", "shift+Tab"], "CONTINUE", []),
                ("verify", ["Tab", "Tab", "Return"], "Cancel", ["onButtonCancel"]),
                ("verify", ["Tab", "space"], "CONTINUE", [SENT]),
                ("verify", ["Escape"], "PASSCODE", ["onButtonCancel"]),
                ("alert", [], "PASSCODE", []),
                ("alert", ["Tab"], "CONTINUE", []),
                ("choose", [], "3", []),
                ("choose", ["Down"], "14", []),
                ("choose", ["Down", "Return"], "14", ["onButtonChoose"]),
                ("choose", ["Tab", "Tab", "space"], "Cancel", ["onButtonCancel"]),
                ("choose", ["Escape"], "3", ["onButtonCancel"]),
                ("expired", ["Escape"], "Exit", ["onButtonExit"]),
                ("expired", ["Return"], "Exit", ["onButtonExit"])]:
            with self.subTest(view=view, keys=keys):
                self.show(view)
                if keys:
                    self.stage.press(*keys)
                self.assertEqual(self.value(focus), element)
                self.assertEqual([m["METHOD"] for m in self.stage.messages], methods)

    def test_what_is_said_and_when(self):
        """What a view says for itself, what happens, and the count-down at four moments."""
        self.show(language="de")
        self.stage.script("""for (let left = 119; left > 0; --left)
                setTimeout(() => {
                    const seconds = String(left % 60).padStart(2, "0");
                    byId("timer").innerHTML = `0${Math.floor(left / 60)}:${seconds}`;
                }, 121 - left);""")
        self.stage.refuse("de")
        self.stage.spin(1)
        self.stage.run("setHelp({ label: 'Hilfe', text: 'Ruf 555 0100' })")
        self.stage.run("minutes = 0; sessionTimeOut()")
        self.stage.spin(0.2)
        say = lambda key: page_stage.texts("de")["IDS_MFA_OFFLINE_" + key]
        self.assertEqual(self.stage.said, [
            " ".join([say("HTML_T2").replace("%TYPE%", "Authenticator app") + ".",
                      "ada.lovelace (EXAMPLE).", say("HTML_T3"), say("HTML_T4") + "."]),
            say("LIMIT_ATTEMPTS") + " 5. (once)", say("ERRORMSG_OTP"),
            "Verbleibende Zeit: 2 Minuten. (once)", "Verbleibende Zeit: 1 Minute.",
            "Verbleibende Zeit: 30 Sekunden.", "Verbleibende Zeit: 10 Sekunden.",
            " ".join([say("ERRORMSG_SESSIONEXP1") + ".", say("ERRORMSG_SESSIONEXP2"),
                      "Hilfe. Ruf 555 0100."])])

    def test_waits_agree_with_their_numbers(self):
        for language, seconds, sentence in [
                ("en", 1, "You can type the next code in 1 second."),
                ("pl", 2, "Następny kod można wpisać za 2 sekundy."),
                ("pl", 22, "Następny kod można wpisać za 22 sekundy."),
                ("ar", 2, "يمكنك إدخال الرمز التالي بعد ثانيتين."),
                ("ar", 11, "يمكنك إدخال الرمز التالي بعد 11 ثانية."),
                ("he", 2, "אפשר להקליד את הקוד הבא בעוד שתי שניות.")]:
            self.assertEqual(self.value(f"waitSentence('{language}', {seconds})"), sentence)

    def test_every_language_is_known_by_its_heading_and_has_its_plural_forms(self):
        self.assertEqual(sorted(self.value("Object.keys(languages)")), page_stage.LANGUAGES)
        for language in page_stage.LANGUAGES:
            with self.subTest(language):
                self.show(language=language)
                self.assertEqual(self.value("document.documentElement.lang"), language)
                self.assertEqual(self.value("document.documentElement.dir"),
                                 "rtl" if language in ("ar", "he") else "ltr")
                self.assertEqual(self.value(f"""new Intl.PluralRules("{language}")
                    .resolvedOptions().pluralCategories
                    .filter((name) => !(name in languages["{language}"].wait))"""), [])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v", *sys.argv[1:]])
