"""Data reaches the server byte for byte."""

from client_support import (
    BODY,
    ClientTest,
    TIMEOUT,
    WRONG_ARGUMENTS,
    main,
)


class Sending(ClientTest):
    def setUp(self):
        super().setUp()
        self.url = self.serve("/a", b"thanks")

    def assert_received(self, method, body):
        request = self.server.requests.get(timeout=TIMEOUT)
        self.assertEqual(request.method, method)
        self.assertTrue(request.body == body, "%d bytes arrived" % len(request.body))

    def test_text_is_posted(self):
        result = self.run_client("-d", "a=b&c", self.url)
        self.assert_succeeded(result)
        self.assertEqual(result.output, b"thanks")
        self.assert_received("POST", b"a=b&c")

    def test_the_bytes_of_a_file_are_posted(self):
        for length in (1, len(BODY)):
            self.write("data", BODY[:length])
            self.assert_succeeded(self.run_client("-d", "@data", self.url))
            self.assert_received("POST", BODY[:length])

    def test_standard_input_is_posted(self):
        self.assert_succeeded(self.run_client("-d", "@-", self.url, data=BODY))
        self.assert_received("POST", BODY)

    def test_put_sends_data_too(self):
        for mode in ("--segmented", "--plain"):
            self.assert_succeeded(
                self.run_client("-X", "PUT", mode, "-d", "@-", self.url, data=BODY)
            )
            self.assert_received("PUT", BODY)

    def test_put_can_send_nothing(self):
        self.assert_succeeded(self.run_client("-X", "PUT", "-d", "", self.url))
        self.assert_received("PUT", b"")

    def test_each_source_gets_the_data(self):
        other = self.serve("/b", b"thanks")
        self.assert_succeeded(self.run_client("-q", "-O", "-d", "data", self.url, other))
        self.assert_received("POST", b"data")
        self.assert_received("POST", b"data")

    def test_an_interim_response_is_not_taken_for_the_answer(self):
        expect = ("-H", "Expect: 100-continue")
        result = self.run_client("-d", "data", *expect, self.url, "-o", "out")
        self.assert_succeeded(result)
        self.assertEqual(self.server.requests.get().headers["Expect"], "100-continue")
        self.assertEqual(self.read("out"), b"thanks")

    def test_no_consent_is_waited_for(self):
        self.assert_succeeded(self.run_client("-d", "data", self.url))
        self.assertIsNone(self.server.requests.get().headers["Expect"])

    def test_an_empty_header_is_sent_by_the_session_and_takes_one_away_from_the_curl_handler(self):
        for handler, sent in (("session", ""), ("curl", None)):
            self.assert_succeeded(
                self.run_client("-d", "data", "-H", "User-Agent:", self.url, "--handler", handler)
            )
            self.assertEqual(self.server.requests.get().headers["User-Agent"], sent)

    def test_a_data_file_that_is_missing_sends_nothing(self):
        self.assert_failed(
            self.run_client("-d", "@missing", self.url),
            WRONG_ARGUMENTS,
            "--data: '@missing': No such file or directory (--help tells more)",
        )
        self.assertTrue(self.server.requests.empty())


if __name__ == "__main__":
    main()
