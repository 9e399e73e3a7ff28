# Does what Homebrew's formula says, without Homebrew: installs into a folder, and runs its test.
#
# use: ruby formula.rb FORMULA SOURCE-FOLDER FOLDER
#
# FOLDER is made anew: the installed files are in its prefix/, those of the test in its test/. What
# the formula needs has to be installed. This has the words that our formula uses, and no others: a
# word that is missing here ends it.

require "delegate"
require "digest"
require "fileutils"
require "pathname"
require "socket"
require "tmpdir"

class Wrong < StandardError; end

module OS
  def self.mac? = false
end

def ENV.cc = "cc"

class Formula
  class << self
    attr_reader :values, :needed, :tested, :served

    %i[desc url sha256 license].each do |name|
      define_method(name) { |value| (@values ||= {})[name] = value }
    end

    def depends_on(what) = (@needed ||= []) << what

    def on_linux = yield

    def test(&block) = @tested = block

    def service(&block) = @served = block
  end

  attr_reader :prefix, :testpath

  def initialize(folder)
    @prefix = folder/"prefix"
    @testpath = folder/"test"
  end

  def bin = prefix/"bin"

  def include = prefix/"include"

  def lib = prefix/"lib"

  def var = prefix/"var"

  def pkgshare = Share.new(prefix/"share/zelieml")

  alias opt_bin bin
  alias opt_pkgshare pkgshare

  def version = self.class.values[:url][/-([\d.]+)\.tar\.gz$/, 1]

  def std_cmake_args
    ["-DCMAKE_INSTALL_PREFIX=#{prefix}", "-DCMAKE_INSTALL_LIBDIR=lib", "-DCMAKE_BUILD_TYPE=Release",
     "-DCMAKE_FIND_FRAMEWORK=LAST", "-DBUILD_TESTING=OFF", "-Wno-dev"]
  end

  def system(*words)
    words = words.map(&:to_s)
    log = IO.popen(words, err: [:child, :out], &:read)
    raise Wrong, "#{words.join(" ")}: #{$?}\n#{log.lines.last(20).join}" unless $?.success?
  end

  def shell_output(command) = pipe_output(command, "", 0)

  def pipe_output(command, input, status)
    output = IO.popen(command, "r+") do |pipe|
      pipe.write(input)
      pipe.close_write
      pipe.read
    end
    assert_equal status, $?.exitstatus, command
    output
  end

  def chmod(mode, path) = path.chmod(mode)

  def assert_equal(wanted, found, what = "values differ")
    raise Wrong, "#{what}: #{wanted.inspect} wanted, #{found.inspect} found" unless wanted == found
  end

  def assert_match(wanted, found)
    raise Wrong, "#{wanted.inspect} is not in #{found.inspect}" unless found.include?(wanted)
  end

  # What "service do" says, which becomes a property list with Homebrew.
  def service
    said = Service.new(self)
    said.instance_exec(&self.class.served)
    said
  end
end

class Share < SimpleDelegator
  def install(name)
    mkpath
    FileUtils.cp_r(name, self)
  end
end

class Service
  attr_reader :command

  def initialize(formula) = @formula = formula

  def run(command) = @command = command

  def keep_alive(**) = nil

  def restart_delay(_seconds) = nil

  def log_path(_path) = nil

  def error_log_path(_path) = nil

  def opt_bin = @formula.opt_bin

  def var = @formula.var
end

def step(what)
  puts "#{what} ..."
  $stdout.flush
  yield
end

file, source, folder = ARGV.map { |word| Pathname(word).expand_path }
abort "use: ruby formula.rb FORMULA SOURCE-FOLDER FOLDER" unless folder && ARGV.length == 3
folder.rmtree if folder.exist?
load file.to_s
formula = Zelieml.new(folder)
begin
  archive = Zelieml.values[:url].delete_prefix("file://")
  formula.assert_equal Digest::SHA256.file(archive).hexdigest, Zelieml.values[:sha256], "the digest"
  step("installing") { Dir.chdir(source) { formula.install } }
  formula.post_install
  formula.assert_equal "#{formula.opt_pkgshare}/launchd", formula.caveats[%r{\S+/launchd}], "caveats"
  formula.testpath.mkpath
  step("running its test") do
    Dir.chdir(formula.testpath) { formula.instance_exec(&Zelieml.tested) }
  end
  step("running its service") do
    Dir.mktmpdir do |place|
      manager = Socket.new(:UNIX, :DGRAM)
      manager.bind(Addrinfo.unix("#{place}/manager"))
      running = spawn({ "NOTIFY_SOCKET" => "#{place}/manager" }, *formula.service.command.map(&:to_s))
      said = IO.select([manager], nil, nil, 60) ? manager.recv(4096) : ""
      Process.kill("TERM", running)
      Process.wait(running)
      formula.assert_match "READY=1", said
      formula.assert_equal 0, $?.exitstatus, "the service ends"
    end
  end
rescue Wrong => e
  abort "WRONG: #{e.message}"
end
puts "all is well"
