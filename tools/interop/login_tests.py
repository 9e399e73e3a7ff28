"""Settings are tried out at the servers: logins good and bad, switches right and wrong."""

import socket
import time

from desk import Desk


class LoginTests(Desk):
    def run(self):
        self.pop3()
        self.smtp_logins()
        self.smtp_switch()
        self.pop_before_smtp()

    def pop_test(self, name, code, text, auth_type, **more):
        result = self.client.test(**self.pop_account(auth_type, **more))["POP3"]
        self.report.expect(f"POP3 test, {name}", result, code, text)

    def smtp_test(self, name, code, text, service, **more):
        result = self.client.test(**self.smtp_account(service, **more))["SMTP"]
        self.report.expect(f"SMTP test, {name}", result, code, text)

    def pop3(self):
        for auth_type, method in (("pop", "PLAIN"), ("apop", "APOP")):
            self.pop_test(f"{auth_type}, right password", "ok", r"\+OK", auth_type)
            self.report.becomes(f"POP3 test, {auth_type}: login by {method}",
                                lambda: self.pop.logged_in("anna"), method)
            self.pop_test(f"{auth_type}, wrong password", "auth", self.pop.refuses_login,
                          auth_type, pop_passwd="wrong")
            self.pop_test(f"{auth_type}, unknown user", "auth", self.pop.refuses_login,
                          auth_type, pop_account="nobody")
            self.pop_test(f"{auth_type}, nobody listens", "connection", r"nothing", auth_type,
                          pop_port=1)

    def smtp_logins(self):
        for service in ("auth", "login", "plain"):
            offer = f"server offers {service}"
            self.smtp_test(f"{offer}, right password", "ok", r"221 ", service, smtp_auth="on")
            self.smtp_test(f"{offer}, wrong password", "auth", self.smtp.refuses["password"],
                           service, smtp_auth="on", smtp_passwd="wrong")
            self.smtp_test(f"{offer}, unknown user", "auth", self.smtp.refuses["password"],
                           service, smtp_auth="on", smtp_account="nobody")

    def smtp_switch(self):
        """The switch has to agree with what the server offers; else its EHLO reply is the last."""
        without_auth = r"(?!.*AUTH)250-.*250 [^\r]*\r\n\Z"
        with_auth = r"(?=.*AUTH)250-.*250 [^\r]*\r\n\Z"
        self.smtp_test("AUTH not offered, switch off", "ok", r"221 ", "open", smtp_auth="off")
        self.smtp_test("AUTH not offered, switch on", "auth", without_auth, "open", smtp_auth="on")
        self.smtp_test("AUTH offered, switch off", "auth", with_auth, "auth", smtp_auth="off")
        self.smtp_test("nobody listens", "connection", r"nothing", "open", smtp_auth="off",
                       smtp_port=1)

    def pop_before_smtp(self):
        for auth_type in ("pop", "apop"):
            fields = {**self.smtp_account("auth", smtp_auth="on", pop_before_smtp="on"),
                      **self.pop_account(auth_type, pop_wait_time=300)}
            start = time.monotonic()
            results = self.client.test(**fields)
            seconds = time.monotonic() - start
            name = f"SMTP test after {auth_type}"
            self.report.expect(f"{name}: POP3", results["POP3"], "ok", r"\+OK")
            self.report.expect(f"{name}: SMTP", results["SMTP"], "ok", r"221 ")
            self.report.check(f"{name}: waits", [] if seconds >= 0.3 else [f"only {seconds} s"])

            with socket.create_server(("127.0.0.1", 0)) as listener:
                fields.update(smtp_port=listener.getsockname()[1], pop_passwd="wrong")
                result = self.client.test(**fields)["SMTP"]
                self.report.expect(f"{name} with a wrong password", result, "auth",
                                   self.pop.refuses_login)
                listener.settimeout(0)
                try:
                    problems = [f"connected by {listener.accept()[1]}"]
                except BlockingIOError:
                    problems = []
                self.report.check(f"{name} with a wrong password: SMTP is left alone", problems)
