#!/usr/bin/python3
"""The system calls of a message, as strace sees them: in clear text and over TLS.

    calls_test.py LIBRARY MAILCALL CERTIFICATE-FOLDER
"""
import collections
import os
import re
import subprocess
import sys
import tempfile
import unittest

sys.argv[1:], ARGUMENTS = [], sys.argv[1:]
