"""An authority of this run, and the certificate that it has given to the servers."""

import subprocess


class Authority:
    def __init__(self, folder):
        self.ca_file = folder / "ca.pem"
        self.certificate = folder / "server.pem"
        self.key = folder / "server.key"
        ca_key = folder / "ca.key"
        request = folder / "server.csr"
        names = folder / "server.names"
        names.write_text("subjectAltName = IP:127.0.0.1, DNS:localhost\n")
        new_key = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes")
        self.openssl("req", "-x509", "-subj", "/CN=Authority of this run", "-days", "1", *new_key,
                     "-keyout", ca_key, "-out", self.ca_file)
        self.openssl("req", "-new", "-subj", "/CN=a server", *new_key, "-keyout", self.key,
                     "-out", request)
        self.openssl("x509", "-req", "-in", request, "-CA", self.ca_file, "-CAkey", ca_key,
                     "-CAcreateserial", "-days", "1", "-extfile", names, "-out", self.certificate)

    @staticmethod
    def openssl(*words):
        subprocess.run(["openssl", *words], check=True, capture_output=True)
