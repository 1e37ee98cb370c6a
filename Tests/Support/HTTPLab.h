#pragma once

#include "Support/NetworkLab.h"

#include <cstdlib>
#include <string>

namespace tarn {

/// A lab with HTTPS servers on 127.0.0.1 for the files in `www`: nginx at port 443, and hostile ones from
/// 8000 on, with the certificates in the order of makeCertificates. At 8005 nobody speaks, and 8007 has
/// TLS 1.0 alone. What nginx has below "/slow" comes by a megabyte a second.
class HTTPLab : public LabTest {
public:
    /// What clients are to trust.
    static constexpr const char *authorities = "/run/lab/ours.pem";

protected:
    void SetUp() override {
        LabTest::SetUp();
        if (IsSkipped())
            return;
        for (const char *name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
            unsetenv(name);
        lab().run(makeCertificates);
        lab().write("/run/lab/server.py", hostileServer);
        lab().write("/run/lab/nginx.conf", nginx);
        lab().write("/run/lab/www/small", "hello");
        lab().run("mkdir -p /var/lib/nginx");
        lab().start("python3 /run/lab/server.py");
        nginx_ = startNginx();
        const std::string count = "ss -Hltn '( sport = 443 or sport ge 8000 )' | wc -l";
        waitUntil([&] { return lab().run(count).out == "8\n"; }, "servers");
        // OpenSSL alone would speak any version.
        lab().write("/run/lab/openssl.cnf", "openssl_conf = a\n[a]\nssl_conf = b\n[b]\nsystem_default = c\n"
                                            "[c]\nCipherString = ALL:@SECLEVEL=0\nMinProtocol = TLSv1\n");
        setenv("OPENSSL_CONF", "/run/lab/openssl.cnf", 1);
    }
    pid_t startNginx() { return lab().start("nginx -p /run/lab -c nginx.conf -e stderr"); }

    pid_t nginx_ = 0;

private:
    /// Two certification authorities, and what servers show.
    static constexpr const char *makeCertificates = R"(set -e; cd /run/lab
key="-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"
openssl req -x509 $key -keyout ours.key -out ours.pem -subj "/O=Lab/CN=Lab CA"
openssl req -x509 $key -keyout theirs.key -out theirs.pem -subj "/O=Example Corp/CN=Inspect CA"
while read -r file authority days name; do
    openssl req -new $key -keyout $file.key -subj /CN=$file -addext subjectAltName=$name |
        openssl x509 -req -CA $authority.pem -CAkey $authority.key -copy_extensions copy -days $days >$file.pem
done <<END
good ours 9 IP:127.0.0.1
host ours 9 DNS:elsewhere.example
expired ours -1 IP:127.0.0.1
inspected theirs 9 IP:127.0.0.1
chain theirs 9 IP:127.0.0.1
END
cat theirs.pem >>chain.pem)";

    static constexpr const char *hostileServer = R"(
import os, socket, ssl, threading, time
os.chdir("/run/lab")
OK = b"HTTP/1.1 200 OK\r\n"
LONG = OK + b"Content-Length: 1000000\r\n\r\n"
def repeat(send, piece, pause=0, count=10**9):
    for _ in range(count): send(piece); time.sleep(pause)
def answer(connection, request):
    path, send = request.split()[1].decode(), connection.sendall
    if path == "/mute": time.sleep(60)
    if path == "/endless": send(OK + b"\r\n"); repeat(send, b"x" * 65536)
    if path == "/headers": send(OK); repeat(send, b"X-Header: " + b"x" * 1000 + b"\r\n")
    if path == "/truncated": send(LONG + b"x" * 400000); connection.unwrap()
    if path == "/cut": send(LONG + b"x" * 500000)
    if path == "/garbage": send(b"SSH-2.0-OpenSSH_9.2p1\r\n" * 100); connection.unwrap()
    if path == "/to-garbage": send(b"HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: /garbage\r\n\r\n")
    if path == "/silent": send(LONG + b"x" * 3); time.sleep(60)
    if path == "/trickle": send(OK + b"Content-Length: 8\r\n\r\n"); repeat(send, b"x", 0.3, 8)
    if path == "/echo": send(OK + b"Set-Cookie: a=b\r\nContent-Length: %d\r\n\r\n" % len(request) + request)
    how, name = path.rsplit("/", 1)
    if not os.path.exists("www/" + name): return
    with open("www/" + name, "rb") as file: body = file.read()
    send(OK + b"Content-Length: %d\r\n\r\n" % len(body))
    if how == "/slow": [repeat(send, bytes([byte]), 1, 1) for byte in body]
    send(body[:len(body) // 2] if how == "/half" else body)
def serve(connection, context):
    try:
        connection = context.wrap_socket(connection, server_side=True)
        while request := connection.recv(65536): answer(connection, request) or connection.close()
    except OSError: pass
def listen(port, name, version=None):
    listener, kept = socket.create_server(("127.0.0.1", port)), []
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    if version: context.set_ciphers("ALL:@SECLEVEL=0"); context.minimum_version = context.maximum_version = version
    if name: context.load_cert_chain(f"/run/lab/{name}.pem", f"/run/lab/{name}.key")
    while kept.append(listener.accept()[0]) is None:
        if name: threading.Thread(target=serve, args=(kept.pop(), context)).start()
silent = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
silent.bind(("127.0.0.1", 53))
ports = [(8000 + i, name) for i, name in enumerate(["good", "host", "expired", "inspected", "chain", None])]
for port in ports + [(8007, "good", ssl.TLSVersion.TLSv1)]: threading.Thread(target=listen, args=port).start()
)";

    static constexpr const char *nginx =
        R"(daemon off; master_process off; user root root; pid pid; error_log stderr; events {}
http {
    access_log requests; root www; server_tokens off; ssl_certificate good.pem; ssl_certificate_key good.key;
    server { listen 127.0.0.1:80; return 200 "stolen"; }
    server {
        listen 127.0.0.1:443 ssl http2; location /500 { return 500 "broken"; } location /loop { return 302 /loop; }
        location /slow/ { alias www/; limit_rate 1m; }
        location /https { return 302 https://127.0.0.1/small; } location /http { return 302 http://127.0.0.1/small; }
    }
})";
};

} // namespace tarn
