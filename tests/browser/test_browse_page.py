"""The page of kel-browse in a browser, with an agent behind it."""

import contextlib
import http.server
import json
import threading

from browsing import By, BrowserCase, wait_until


@contextlib.contextmanager
def other_page(text):
    """The address of a page of another server, on another port of the machine."""
    class Handler(http.server.BaseHTTPRequestHandler):

        def do_GET(self):
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.end_headers()
            self.wfile.write(text.encode())

        def log_message(self, *_):
            pass

    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield "http://127.0.0.1:%d/" % server.server_port
        server.shutdown()


class BrowseCase(BrowserCase):

    def show(self, path):
        self.browser.open(self.shop.address + "#" + path)
        self.browser.wait_for_text("main h2", path)

    def cell(self, name):
        return '[data-name="%s"]' % name

    def follow(self, text, within="nav"):
        self.browser.one(within)
        wait_until(lambda: self.browser.driver.find_elements(By.LINK_TEXT, text))
        for link in self.browser.all(within + " a"):
            if link.text == text:
                return link.click()
        raise AssertionError("there is no link " + text)


class Look(BrowseCase):

    def test_the_tree_opens_and_leads_to_entities(self):
        self.show("/")
        self.assertEqual([each.text for each in self.browser.all("nav a")], ["/", "shelf", "store"])
        self.browser.one('button[aria-label="open shelf"]').click()
        wait_until(lambda: len(self.browser.all("nav a")) == 5)
        self.follow("bolt")
        self.browser.wait_for_text("main h2", "/shelf/bolt")
        self.browser.wait_for_text(self.cell("fullName"), '"/shelf/bolt"')
        self.browser.driver.back()
        self.browser.wait_for_text("main h2", "/")
        self.browser.one('button[aria-label="close shelf"]').click()
        wait_until(lambda: len(self.browser.all("nav a")) == 3)

    def test_the_address_loses_its_secret_and_can_be_loaded_again(self):
        self.show("/shelf/nail")
        self.assertNotIn("token", self.browser.driver.current_url)
        self.browser.driver.refresh()
        self.browser.wait_for_text(self.cell("size"), "60")

    def test_a_value_follows_the_agent_and_only_what_changed_is_marked(self):
        self.show("/shelf/nail")
        self.browser.wait_for_text(self.cell("size"), "60")
        self.shop.run("nail.size = 61")
        self.browser.wait_for_text(self.cell("size"), "61")
        marked = [each.get_attribute("data-name") for each in self.browser.all(".changed")]
        self.assertEqual(marked, ["size"])
        self.shop.run("nail.parent = None")
        self.browser.wait_for_text(self.cell("parent"), "None")

    def test_entities_come_and_go(self):
        self.show("/shelf/nail")
        self.shop.run("shelf.newEntity('Acme::Item', 'screw')")
        wait_until(lambda: "screw" in self.browser.text("nav"))
        self.shop.run("nail.parent = bolt.parent = None; del shelf['nail']")
        self.browser.wait_for_text("main .failed", "LookupError: entity '/shelf/nail' not found")
        wait_until(lambda: "nail" not in self.browser.text("nav"))
        self.shop.run("nail = shelf.newEntity('Acme::Item', 'nail')")
        self.browser.wait_for_text(self.cell("size"), "0")

    def test_pointers_lead_on_even_in_a_circle(self):
        self.show("/shelf/nail")
        for path in "/shelf/bolt", "/shelf/nail", "/shelf/bolt":
            self.follow(path + " (Acme::Item)", "main")
            self.browser.wait_for_text("main h2", path)
            self.browser.wait_for_text(self.cell("name"), '"%s"' % path[7:])

    def test_texts_are_texts_and_no_part_of_the_page(self):
        self.show("/shelf/nail")
        self.browser.wait_for_text(self.cell("note"), '"for <b>Gr\u00f6\u00dfe</b> \\"M4\\""')
        self.assertEqual(self.browser.all("main b"), [])
        name = "<img src=x onerror=document.title=1> #?%41&'\" Gr\u00f6\u00dfe \u2603"
        self.shop.run("shelf.newEntity('Acme::Item', %r)" % name)
        self.follow(name)
        self.browser.wait_for_text("main h2", "/shelf/" + name)
        self.browser.wait_for_text(self.cell("name"), json.dumps(name, ensure_ascii=False))
        self.assertEqual(self.browser.driver.title, "acme.shop")

    def test_a_large_directory_comes_in_pages(self):
        self.shop.run("for number in range(148):\n"
                      "    made = shelf.newEntity('Acme::Item', 'item%d' % number)")
        self.show("/shelf")
        self.browser.one('button[aria-label="open shelf"]').click()
        wait_until(lambda: len(self.browser.all("nav a")) == 103)
        self.browser.press("50 more", "nav")
        wait_until(lambda: "item147" in self.browser.text("nav"))
        self.assertEqual(len(self.browser.all("nav a")), 53)
        self.browser.press("before these", "nav")
        wait_until(lambda: "nail" in self.browser.text("nav"))

    def test_a_collection_is_shown_on_demand_in_pages(self):
        self.show("/store")
        self.browser.wait_for_text(self.cell("price") + " + button", "show")
        self.assertEqual(self.browser.all(".members"), [])
        self.browser.one(self.cell("price") + " + button").click()
        rows = '[data-members="price"] tr'
        wait_until(lambda: len(self.browser.all(rows)) == 100)
        self.browser.press("150 more")
        wait_until(lambda: '"p100"' in (self.browser.text(rows) or ""))
        self.shop.run("store.price['p101'] = 7")
        self.browser.wait_for_text(rows + ":nth-child(2) .changed", "7")
        self.browser.press("50 more")
        wait_until(lambda: len(self.browser.all(rows)) == 50)
        self.browser.press("before these")
        wait_until(lambda: len(self.browser.all(rows)) == 100)
        self.browser.press("hide")
        wait_until(lambda: not self.browser.all(".members"))

    def test_the_types_have_a_page_to_which_their_names_lead(self):
        self.show("/shelf/nail")
        link = self.browser.one("main p a").get_attribute("href")
        self.assertTrue(link.endswith("/types#Acme::Item"))
        self.browser.driver.get(link)
        self.assertTrue(self.browser.driver.find_element(By.ID, "Acme::Item").is_displayed())
        self.browser.one("#search").send_keys("restock")  # its script runs
        wait_until(lambda: len(self.browser.all("section")) == 1)

    def test_it_asks_nobody_else_and_complains_of_nothing(self):
        self.show("/shelf/nail")
        self.browser.wait_for_text(self.cell("size"), "60")
        own = self.shop.address.partition("?")[0]
        asked = [each for each in self.browser.requests()
                 if not each.startswith((own, "data:", "about:"))]
        self.assertEqual(asked, [])
        self.assertEqual(self.browser.complaints(), [])

    def test_it_can_be_read_by_day_and_by_night_and_in_narrow_windows(self):
        self.show("/shelf/nail")
        self.browser.wait_for_text(self.cell("size"), "60")
        self.assertReadable(["h1", "#process", "header a", "nav a", "nav small", "h2", "h3", "th",
                             ".value", "main button", "main a"])


class Calls(BrowseCase):

    def begin(self, name):
        self.show("/shelf/nail")
        self.browser.one("#functions")
        for row in self.browser.all("#functions tr"):
            if row.find_element(By.TAG_NAME, "th").text == name:
                return row.find_element(By.TAG_NAME, "button").click()
        raise AssertionError("there is no function " + name)

    def asked(self):
        return [each for each in self.browser.requests() if each.endswith("/call")]

    def test_none_is_made_without_the_second_press(self):
        self.begin("resize")
        self.browser.one("dialog input").send_keys("5")
        self.browser.press("Cancel", "dialog")
        wait_until(lambda: not self.browser.all("dialog"))
        self.shop.run("nail.weight = 2.0")
        self.browser.wait_for_text(self.cell("weight"), "2.0")  # a look later
        self.assertEqual(self.asked(), [])
        self.assertEqual(self.shop.value("nail.size"), "60")

    def test_the_second_press_makes_one_and_tells_its_result(self):
        self.begin("add")
        first, second = self.browser.all("dialog input")
        first.send_keys("2")
        second.send_keys("40")
        self.browser.press("Call", "dialog")
        self.browser.wait_for_text('[data-result="add"]', "42")
        self.assertEqual(len(self.asked()), 1)

    def test_a_constant_is_chosen_and_what_the_call_changes_is_shown(self):
        self.begin("describe")
        choice = self.browser.one("dialog select")
        self.assertEqual(choice.text.split(), ["red", "blue"])
        choice.send_keys("blue")
        self.browser.press("Call", "dialog")
        self.browser.wait_for_text('[data-result="describe"]', '"a blue item"')
        self.begin("resize")
        self.browser.one("dialog input").send_keys("5")
        self.browser.press("Call", "dialog")
        self.browser.wait_for_text(self.cell("size"), "5")

    def test_the_key_Enter_is_a_press_too(self):
        self.begin("resize")
        self.browser.one("dialog input").send_keys("9\n")
        self.browser.wait_for_text(self.cell("size"), "9")

    def test_a_failure_is_told_beside_the_button(self):
        self.begin("add")
        self.browser.press("Call", "dialog")
        self.browser.wait_for_text('[data-result="add"] .error', "ValueError: nothing is no S32")


class Guarded(BrowseCase):

    def test_another_secret_shows_no_page(self):
        for address in (self.shop.address[:-1] + "x", self.shop.address.partition("?")[0]):
            self.browser.open(address)
            self.assertIn("open the address that kel-browse has printed",
                          self.browser.text("body"))
            self.assertEqual(self.browser.all("nav"), [])

    def test_another_page_of_the_browser_cannot_call(self):
        self.show("/shelf/nail")
        own = self.shop.address.partition("?")[0]
        question = {"entity": "/shelf/nail", "function": "resize", "arguments": ["7"]}
        page = """<p>waiting</p><script>
            fetch( %r, { method: "POST", mode: "no-cors", credentials: "include", body: %r } )
               .finally( () => document.querySelector( "p" ).textContent = "sent" );
            </script>""" % (own + "call", json.dumps(question))
        with other_page(page) as address:
            self.browser.open(address)
            self.browser.wait_for_text("p", "sent")
        self.assertEqual(self.shop.value("nail.size"), "60")

    def test_another_page_cannot_show_it_in_a_frame(self):
        own = self.shop.address
        self.browser.requests()
        with other_page('<iframe src="%s"></iframe>' % own) as address:
            self.browser.open(address)
            wait_until(lambda: own in self.browser.requests())
            self.browser.driver.switch_to.frame(0)
            self.assertEqual(self.browser.all("nav"), [])
            self.browser.driver.switch_to.default_content()


class Gone(BrowseCase):

    def test_an_agent_that_goes_is_told_and_shown_again_when_it_is_back(self):
        self.show("/shelf/nail")
        self.browser.wait_for_text(self.cell("size"), "60")
        before = self.browser.text("#process")
        self.shop.stop_agent()
        self.browser.wait_for_text("#notice", "acme.shop is not there; still trying")
        self.assertEqual(self.browser.text(self.cell("size")), "60")  # what was last seen
        self.shop.start_agent()
        wait_until(lambda: not self.browser.all("#notice"))
        wait_until(lambda: self.browser.text("#process") not in ("", before))
        self.browser.wait_for_text(self.cell("size"), "60")
