"""What the private Postfixes share: the services behind the ones that they offer, and how they run."""

import subprocess

SERVICES = """
pickup    unix  n  -  n  60   1  pickup
cleanup   unix  n  -  n  -    0  cleanup
qmgr      unix  n  -  n  300  1  qmgr
tlsmgr    unix  -  -  n  1000? 1 tlsmgr
rewrite   unix  -  -  n  -    -  trivial-rewrite
bounce    unix  -  -  n  -    0  bounce
defer     unix  -  -  n  -    0  bounce
trace     unix  -  -  n  -    0  bounce
verify    unix  -  -  n  -    1  verify
proxymap  unix  -  -  n  -    -  proxymap
smtp      unix  -  -  n  -    -  smtp
error     unix  -  -  n  -    -  error
retry     unix  -  -  n  -    -  error
virtual   unix  -  n  n  -    -  virtual
anvil     unix  -  -  n  -    1  anvil
scache    unix  -  -  n  -    1  scache
postlog   unix-dgram n - n - 1 postlogd
"""


def start(etc, offered):
    """Starts the Postfix of a folder, which has its main.cf, with what it offers of master.cf."""
    (etc / "master.cf").write_text(offered + SERVICES)
    subprocess.run(["setsid", "postfix", "-c", etc, "start"], stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=True)


def stop(etc):
    subprocess.run(["postfix", "-c", etc, "stop"], stdin=subprocess.DEVNULL, capture_output=True)
