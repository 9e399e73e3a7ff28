# Homebrew's formula. "./run dist" writes it for its archive, with the two values below.
class Zelieml < Formula
  desc "Send short status mails: library, program and service"
  url "@URL@"
  sha256 "@SHA256@"
  license "MIT"

  depends_on "cli11" => :build
  depends_on "cmake" => :build
  depends_on "nlohmann-json" => :build
  depends_on "python@3.13" => :build
  depends_on "nettle"

  on_linux do
    depends_on "gnutls"
  end

  def install
    args = ["-DZELIEML_TESTS=OFF", "-DZELIEML_TLS=ON"]
    # For this machine only: a package has one processor's code.
    args << "-DCMAKE_OSX_ARCHITECTURES=#{Hardware::CPU.arch}" if OS.mac?
    system "cmake", "-S", ".", "-B", "build", *args, *std_cmake_args
    system "cmake", "--build", "build"
    system "cmake", "--install", "build"
    pkgshare.install "packaging/launchd"
  end

  def post_install
    (var/"spool/zelieml").mkpath
    chmod 0700, var/"spool/zelieml"
  end

  def caveats
    <<~TEXT
      The service sends what is posted to #{var}/spool/zelieml. Name the mail server first:
        zelieml settings set -w #{var}/spool/zelieml smtp_server mail.office.test
        zelieml settings set -w #{var}/spool/zelieml smtp_port 25
      For a service of the whole machine, with a user of its own, see
        #{opt_pkgshare}/launchd
    TEXT
  end

  service do
    run [opt_bin/"zelieml", "engine", "-w", var/"spool/zelieml"]
    keep_alive successful_exit: false
    restart_delay 60
    log_path var/"log/zelieml.log"
    error_log_path var/"log/zelieml.log"
  end

  test do
    server = spawn "#{bin}/zelieml-loopback", "--smtp-port", "0", "--ready-file", "ports",
                   "--maildir", "mails", "--seconds", "60"
    100.times { (testpath/"ports").exist? ? break : sleep(0.1) }
    port = (testpath/"ports").read[/^smtp .*:(\d+)$/, 1]
    work = testpath/"work"
    work.mkpath
    system bin/"zelieml", "settings", "set", "-w", work, "smtp_server", "127.0.0.1"
    system bin/"zelieml", "settings", "set", "-w", work, "smtp_port", port
    pipe_output "#{bin}/zelieml send -w #{work} --from printer7@office.test --to anna@office.test " \
                "--subject 'Printer 7'", "paper jam\n", 0
    mails = (testpath/"mails/new").children.map(&:read)
    assert_equal 1, mails.length
    assert_match "To: anna@office.test", mails.first

    (testpath/"version.c").write <<~C
      #include <stdio.h>
      #include <zelieml_ext.h>
      int main(void) { return puts(eml_version()) < 0; }
    C
    system ENV.cc, "version.c", "-I#{include}", "-L#{lib}", "-lzelieml", "-Wl,-rpath,#{lib}",
           "-o", "version"
    assert_equal "#{version}\n", shell_output("./version")
  ensure
    if server
      Process.kill("TERM", server)
      Process.wait(server)
    end
  end
end
