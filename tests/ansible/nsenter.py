# SPDX-License-Identifier: Apache-2.0
# An Ansible connection into the namespaces of a container started on this
# host: ansible_host is the pid of its init. Commands run through nsenter,
# files are copied through /proc/PID/root.
DOCUMENTATION = """
name: nsenter
short_description: run tasks in the container whose init is ansible_host (a pid)
description: [The controller is this host; commands enter the container's namespaces.]
author: temhostd authors
extends_documentation_fragment: [connection_pipelining]
"""
import shutil

from ansible.plugins.connection.local import Connection as Local


class Connection(Local):
    transport = "nsenter"

    def _inside(self, path):
        return "/proc/%d/root%s" % (int(self._play_context.remote_addr), path)

    def exec_command(self, cmd, in_data=None, sudoable=True):
        pid = int(self._play_context.remote_addr)
        # -r -w: the init's own root, also where nspawn stacked it (role-test.sh)
        return super().exec_command("nsenter -t %d -a -r -w %s" % (pid, cmd), in_data, sudoable)

    # Not through the local connection's copy, which resolves /proc/PID/root.
    def put_file(self, in_path, out_path):
        shutil.copyfile(in_path, self._inside(out_path))

    def fetch_file(self, in_path, out_path):
        shutil.copyfile(self._inside(in_path), out_path)
