"""Takes the pictures of pages that docs/ shows: shoot.py [FOLDER]. Python 3.

KEL_PROGRAMS names the folder of the programs, as build/release/bin. They look the same in any two
runs but for process numbers and for how far a change has faded.
"""

import os
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, os.pardir, os.pardir, "tests", "browser"))

import browsing


def shoot_browse(browser, path):
    """An entity of which an attribute has just changed."""
    with browsing.Shop() as shop:
        browser.window(1100, 720)
        shop.run("nail.note = 'stainless'")
        browser.open(shop.address + "#/shelf/nail")
        browser.wait_for_text('[data-name="size"]', "60")
        browser.one('[data-name="part"] + button').click()
        browser.one('[data-members="part"] tr')
        shop.run("nail.size = 61")
        browser.wait_for_text('[data-name="size"]', "61")
        browser.driver.save_screenshot(path)


def shoot_schema(browser, path):
    """The page of kel-schema with a search."""
    with tempfile.TemporaryDirectory() as folder:
        browser.window(1100, 430)
        browser.open(browsing.schema_page(folder, "acme"))
        browser.one("#search").send_keys("size")
        browser.wait_for_text("#found", "3 types")
        browser.driver.save_screenshot(path)


PICTURES = {"browse.png": shoot_browse, "schema.png": shoot_schema}


def main(folder):
    if not browsing.THERE_IS_ONE:
        sys.exit(browsing.WHERE_TO_GET)
    with browsing.Browser() as browser:
        for name in sorted(PICTURES):
            PICTURES[name](browser, os.path.join(folder, name))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else HERE)
