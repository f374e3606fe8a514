"""The page of kel-schema in a browser."""

import tempfile

from browsing import By, BrowserCase, schema_page


class SchemaPage(BrowserCase):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.page = schema_page(cls.folder.name, "acme", "odd")

    def setUp(self):
        self.clean_browser()
        self.browser.open(self.page)

    def sections(self):
        return self.browser.script("return arguments[0].map( each => each.id )",
                                   self.browser.all("section"))

    def search(self, text):
        field = self.browser.one("#search")
        field.clear()
        field.send_keys(text)

    def test_all_is_shown_at_first_and_the_search_has_the_keyboard(self):
        shown = self.sections()
        self.assertIn("Acme::Item", shown)
        self.assertIn("Odd::Shape", shown)
        self.assertEqual(self.browser.text("#found"), "")
        self.assertEqual(self.browser.driver.switch_to.active_element.get_attribute("id"), "search")

    def test_a_search_leaves_the_attributes_that_hold_its_words_and_their_types(self):
        self.search("RESTOCK")
        self.assertEqual(self.sections(), ["Acme::Store"])
        (row,) = self.browser.all("tr")
        self.assertTrue(row.text.startswith("restock : Acme::StockItem::Ptr("), row.text)
        self.assertEqual(self.browser.text("#found"), "1 type")

    def test_words_may_stand_in_the_type_and_in_the_attribute(self):
        self.search("acme::item weight")
        self.assertEqual(self.sections(), ["Acme::Item"])
        self.assertEqual(len(self.browser.all("tr")), 1)

    def test_a_type_that_is_found_by_its_name_shows_all_it_has(self):
        self.search("acme::badge")
        shown = self.browser.driver.find_element(By.ID, "Acme::Badge")
        self.assertEqual(len(shown.find_elements(By.TAG_NAME, "tr")), 2)
        self.assertTrue(all(row.is_displayed() for row in shown.find_elements(By.TAG_NAME, "tr")))

    def test_what_nobody_has_leaves_nothing_and_an_empty_search_everything(self):
        before = self.sections()
        self.search("nothing of the sort")
        self.assertEqual((self.sections(), self.browser.text("#found")), ([], "0 types"))
        self.search("x\b")
        self.assertEqual(self.sections(), before)

    def test_the_name_of_a_type_leads_to_it(self):
        item = self.browser.driver.find_element(By.ID, "Acme::Item")
        item.find_element(By.LINK_TEXT, "Acme::Thing").click()
        self.assertTrue(self.browser.driver.current_url.endswith("#Acme::Thing"))
        self.assertTrue(self.browser.script(
            "const place = document.getElementById( 'Acme::Thing' ).getBoundingClientRect();"
            "return place.top >= 0 && place.top < innerHeight"))

    def test_it_asks_for_nothing_and_complains_of_nothing(self):
        self.browser.requests()
        self.browser.open(self.page)
        self.search("item")
        asked = [each for each in self.browser.requests() if not each.startswith("data:")]
        self.assertEqual(asked, [self.page])
        self.assertEqual(self.browser.complaints(), [])

    def test_it_can_be_read_by_day_and_by_night_and_in_narrow_windows(self):
        self.assertReadable(["h1", "#search", "h2", "h2 small", "td", "td + td", "td a"])
