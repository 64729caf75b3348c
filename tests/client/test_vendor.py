"""The handler over the maker's curl wrapper library."""

import client_support
from client_support import (
    BODY,
    ClientTest,
    STATUS_IS_ERROR,
    TRANSFER_FAILED,
    WRONG_ARGUMENTS,
    environment,
)


class Vendor(ClientTest):
    def run_vendor(self, *arguments):
        base = self.server.url("/base")
        return self.run_client(
            "--handler", "vendor", *arguments, env=environment(QXCURL_BASE_URL=base)
        )

    def test_a_url_is_fetched(self):
        self.assert_succeeded(self.run_vendor(self.serve("/a"), "-o", "a"))
        self.assertEqual(self.read("a"), BODY)

    def test_a_resource_is_asked_of_the_makers_server_with_its_query(self):
        self.serve("/base/r")
        self.assert_succeeded(
            self.run_vendor("--resource", "/r", "--query", "a b=1&2", "--query", "c=", "-O")
        )
        self.assertEqual(self.read("r"), BODY)
        self.assertEqual(self.server.requests.get_nowait().path, "/base/r?a%20b=1%262&c=")

    def test_data_is_sent(self):
        self.server.answers["/a"] = lambda request: request.reply(request.body)
        self.assert_succeeded(
            self.run_vendor(self.server.url("/a"), "-X", "PUT", "-d", "data", "-o", "a")
        )
        self.assertEqual(self.read("a"), b"data")

    def test_a_status_that_tells_of_an_error_fails_and_leaves_no_file(self):
        url = self.server.url("/none")
        self.assert_failed(
            self.run_vendor(url, "-o", "a"), STATUS_IS_ERROR, url + ": HTTP status 404"
        )
        self.assert_files()

    def test_such_a_status_is_taken_for_a_success_on_demand(self):
        result = self.run_vendor(self.server.url("/none"), "--no-fail")
        self.assert_succeeded(result)
        self.assertEqual(result.output, b"not here")

    def test_a_server_that_stalls_is_left_after_the_timeout(self):
        def stall(request):
            request.send_header(200, [("Content-Length", 10)])
            request.send(b"12345")
            request.wait_until_closed()

        self.server.answers["/a"] = stall
        url = self.server.url("/a")
        result = self.run_vendor(url, "--timeout", "1:1", "-o", "a")
        self.assertEqual(result.status, TRANSFER_FAILED)
        self.assertIn(url + ": Timeout was reached", result.errors)
        self.assert_files()

    def test_a_query_without_a_value_is_refused(self):
        self.assert_failed(
            self.run_vendor("--resource", "/r", "--query", "a"),
            WRONG_ARGUMENTS,
            "--query: must be KEY=VALUE, not 'a' (--help tells more)",
        )

    def test_its_options_are_refused_for_another_handler(self):
        self.assert_failed(
            self.run_client("--resource", "/r"),
            WRONG_ARGUMENTS,
            "--resource: only with --handler vendor (--help tells more)",
        )


if __name__ == "__main__":
    client_support.main()
