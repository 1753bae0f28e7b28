#!/usr/bin/python3
"""The offline page and the error page in every language at every size, measured by script; colours
by pixels."""
import sys

import page_layout
import page_stage

# Of the screens: 1024x768, 1280x800, 1920x1080, 3840x2160, portrait 1080x1920; then larger text, for
# which the window's strip grows.
LOOKS = [((716, 502), 1), ((896, 525), 1), ((1344, 721), 1), ((2688, 1477), 1), ((756, 1309), 1),
         ((896, 507), 1.5), ((896, 490), 2), ((716, 467), 2), ((1344, 686), 2)]
VIEWS = {"verify": {}, "token": {"serial": "HT-0123456789", "limit": ("LIMIT_DAYS", 30), "digits": 8,
                                 "user": "maria.theresia.von.oesterreich", "domain": "CORP.EXAMPLE.ORG"},
         "wait": {}, "choose": {}, "expired": {}}
ERRORS = [f"error-{view}" for view in page_stage.error_pages()["en"]]
# Its texts are the longest where there is least room.
ERROR_LOOKS = [LOOKS[0], LOOKS[7]]


def shown(stage, view, language):
    if view in ERRORS:
        stage.show_error(view.removeprefix("error-"), language)
    else:
        stage.show("verify" if view == "token" else view, language, **VIEWS[view])
    stage.spin(0.1)


def main():
    wrong = []
    with page_stage.screen("2800x1600"):
        stage = page_stage.PageStage(size=LOOKS[0][0])
        for language in page_stage.LANGUAGES:
            for view in [*VIEWS, *ERRORS]:
                shown(stage, view, language)
                for size, text_scale in ERROR_LOOKS if view in ERRORS else LOOKS:
                    stage.look(size, text_scale=text_scale)
                    wrong += [f"{language} {view} {size} text {text_scale}: {fault}"
                              for fault in page_layout.faults(stage)]
        for theme in ("light", "dark", "contrast"):
            for view in [*VIEWS, *ERRORS[:2]]:
                shown(stage, view, "en")
                stage.look(LOOKS[2][0], theme)
                stage.spin(0.2)
                wrong += [f"{theme} {view}: {fault}"
                          for fault in page_layout.faults(stage, stage.picture())]
        # The measure itself: what is broken on purpose is noticed.
        shown(stage, "token", "de")
        stage.script("""const style = new CSSStyleSheet();
            style.replaceSync("h1 { white-space: nowrap; inline-size: 5rem; font-size: 8rem }" +
                "button { min-block-size: 0; padding: 0 } #T3 { margin-top: -3rem } label { color: #999 !important }");
            document.adoptedStyleSheets = [style];""")
        noticed = " ".join(page_layout.faults(stage, stage.picture()))
        for fault in ("scrolls sideways", " by ", "overlaps", "has a contrast of"):
            if fault not in noticed:
                wrong.append(f"not noticed: {fault} in {noticed}")
    print("\n".join(wrong))
    sys.exit(bool(wrong))


if __name__ == "__main__":
    main()
