{
  'variables': {
    # Development builds add -Werror and the add-ons of tests, benchmarks and examples:
    # configure -- -Dkiv_dev=1
    'kiv_dev%': 0,
    # The fuzzer's add-on, for clang only: scripts/fuzz
    'kiv_fuzz%': 0,
    'kiv_fuzz_engine%': '',
    'nan_dir': '<!(node -p "path.dirname(require.resolve(\'nan\'))")',
    # Absolute: make, the action and the compiler have to mean the same file.
    'generated_dir': '<(module_root_dir)/build/generated',
    'module_libs': 'gtk+-3.0 gio-unix-2.0 gdk-pixbuf-2.0 cairo x11 xi xscrnsaver xinerama',
    # The oldest releases that are supported; newer calls warn, later deprecations do not.
    'oldest_releases': [
      'GDK_VERSION_MIN_REQUIRED=GDK_VERSION_3_18', 'GDK_VERSION_MAX_ALLOWED=GDK_VERSION_3_18',
      'GLIB_VERSION_MIN_REQUIRED=GLIB_VERSION_2_46', 'GLIB_VERSION_MAX_ALLOWED=GLIB_VERSION_2_46',
    ],
    # All but the registration. The order is the order of the load-time initialisers, after the
    # registration's own.
    'module_sources': [
      'src/cpp/logging.cpp',
      'src/cpp/conversions.cpp',
      'src/cpp/host_utils.cpp',
      'src/cpp/js_callback.cpp',
      'src/cpp/js_runtime.cpp',
      'src/cpp/screen_lock_monitor.cpp',
      'src/cpp/snap_calls.cpp',
      'src/cpp/snap_completion.cpp',
      'src/cpp/snap_result.cpp',
      'src/cpp/linux/desktop_session_agent_linux.cpp',
      'src/cpp/linux/active_window.cpp',
      'src/cpp/linux/bus_services.cpp',
      'src/cpp/linux/byte_sink.cpp',
      'src/cpp/linux/capture.cpp',
      'src/cpp/linux/compositor_capture.cpp',
      'src/cpp/linux/dbus_idletime.cpp',
      'src/cpp/linux/dbus_screenshot.cpp',
      'src/cpp/linux/gdk_capture.cpp',
      'src/cpp/linux/gnome_screenshot.cpp',
      'src/cpp/linux/handed_over_file.cpp',
      'src/cpp/linux/idle_time.cpp',
      'src/cpp/linux/image_encoder.cpp',
      'src/cpp/linux/input_activity.cpp',
      'src/cpp/linux/interval_timer.cpp',
      'src/cpp/linux/kwin_screenshot2.cpp',
      'src/cpp/linux/late_pictures.cpp',
      'src/cpp/linux/lock_watcher.cpp',
      'src/cpp/linux/logged_bus_call.cpp',
      'src/cpp/linux/overlay_placement.cpp',
      'src/cpp/linux/overlay_window.cpp',
      'src/cpp/linux/picture_file.cpp',
      'src/cpp/linux/plasma_screenshot.cpp',
      'src/cpp/linux/portal_access.cpp',
      'src/cpp/linux/portal_backend.cpp',
      'src/cpp/linux/portal_request.cpp',
      'src/cpp/linux/portal_screenshot.cpp',
      'src/cpp/linux/process_command_line.cpp',
      'src/cpp/linux/process_environment.cpp',
      'src/cpp/linux/raw_picture.cpp',
      'src/cpp/linux/screenshot_permission.cpp',
      'src/cpp/linux/script_process.cpp',
      'src/cpp/linux/selection_area.cpp',
      'src/cpp/linux/selection_drawing.cpp',
      'src/cpp/linux/session_bus.cpp',
      'src/cpp/linux/upgrade_launcher.cpp',
      'src/cpp/linux/upgrade_script.cpp',
      'src/cpp/linux/user_selection_helper_linux.cpp',
      'src/cpp/linux/x_connection.cpp',
      'src/cpp/linux/x_error_guard.cpp',
      'src/cpp/linux/tools_x11_linux.cpp',
    ],
  },
  'target_defaults': {
    'cflags_cc!': ['-std=gnu++0x', '-std=gnu++1y', '-std=gnu++14', '-std=gnu++17', '-std=gnu++20',
                   '-fno-rtti', '-fno-exceptions'],
    'include_dirs': ['src/cpp'],
    'cflags_cc': ['-std=c++20', '-includerequirements.h'],
    'cflags': [
      '-Wall', '-Wextra', '-Wpedantic', '-fvisibility=hidden',
      # Third-party headers are system headers: their warnings are not ours.
      '-isystem<(node_root_dir)/include/node',
      '-isystem<(nan_dir)',
    ],
    # Debian's node-gyp adds it; a module with it takes any other Node down.
    'libraries!': ['-lnode'],
    'conditions': [['kiv_dev==1', {'cflags': ['-Werror']}]],
    'configurations': {
      'Release': {
        'cflags!': ['-O3'],
        'cflags': ['-O2'],
        # Lines in stack traces; all of -g takes half as long again to compile.
        'conditions': [['kiv_dev==1', {'cflags': ['-g1']}]],
      },
      # The debug build is the sanitizer build.
      'Debug': {
        'cflags': ['-O1', '-g', '-fno-omit-frame-pointer', '-fsanitize=address,undefined'],
        'ldflags': ['-fsanitize=address,undefined'],
      },
    },
  },
  'targets': [
    {
      'target_name': 'upgrade_templates',
      'type': 'none',
      'hard_dependency': 1,
      'actions': [{
        'action_name': 'embed_upgrade_templates',
        'inputs': [
          'src/embed_text.js',
          'src/cpp/linux/upgrade_script_template_deb.sh',
          'src/cpp/linux/upgrade_script_template_rh.sh',
        ],
        'outputs': ['<(generated_dir)/upgrade_script_templates.h'],
        'action': [
          'node', 'src/embed_text.js', '<@(_outputs)',
          # The arrays are named after these paths.
          'src/cpp/linux/upgrade_script_template_deb.sh',
          'src/cpp/linux/upgrade_script_template_rh.sh',
        ],
      }],
      'direct_dependent_settings': {'include_dirs': ['<(generated_dir)']},
    },
    {
      # Compiled once for the module and for the tests' add-on. Both link all of it, in its order.
      'target_name': 'kiv_module',
      'type': 'static_library',
      'dependencies': ['upgrade_templates'],
      'sources': ['<@(module_sources)'],
      'defines': ['<@(oldest_releases)'],
      'cflags': ['<!@(pkg-config --cflags-only-I <(module_libs) | sed s/-I/-isystem/g)'],
      'all_dependent_settings': {
        'ldflags': ['-Wl,--whole-archive'],
        'libraries': [
          '<!@(pkg-config --libs <(module_libs))', '-ldl',
          # gcc's own libraries follow.
          '-Wl,--no-whole-archive',
        ],
      },
    },
    {
      'target_name': 'kiv_native',
      'dependencies': ['kiv_module'],
      'sources': ['src/cpp/addon.cpp'],
      'defines': ['<@(oldest_releases)'],
      'cflags': ['<!@(pkg-config --cflags-only-I <(module_libs) | sed s/-I/-isystem/g)'],
    },
    {
      'target_name': 'kiv_permission',
      'sources': [
        'src/cpp/permission/desktop_facts.cpp',
        'src/cpp/permission/facts_export.cpp',
        'src/cpp/permission/permission.cpp',
        'src/cpp/permission/permission_question.cpp',
        'src/cpp/permission/permission_state.cpp',
        'src/cpp/host_utils.cpp',
        'src/cpp/js_callback.cpp',
        'src/cpp/js_runtime.cpp',
        'src/cpp/linux/active_window.cpp',
        'src/cpp/linux/bus_services.cpp',
        'src/cpp/linux/handed_over_file.cpp',
        'src/cpp/linux/portal_access.cpp',
        'src/cpp/linux/portal_backend.cpp',
        'src/cpp/linux/portal_request.cpp',
        'src/cpp/linux/process_command_line.cpp',
        'src/cpp/linux/process_environment.cpp',
        'src/cpp/linux/screenshot_permission.cpp',
        'src/cpp/linux/session_bus.cpp',
        'src/cpp/linux/tools_x11_linux.cpp',
        'src/cpp/linux/x_error_guard.cpp',
      ],
      'defines': ['<@(oldest_releases)'],
      'cflags': ['<!@(pkg-config --cflags-only-I gio-unix-2.0 x11 xinerama | sed s/-I/-isystem/g)'],
      'libraries': ['<!@(pkg-config --libs gio-unix-2.0 x11 xinerama)', '-ldl'],
    },
    {
      'target_name': 'kiv_host_loop',
      'sources': ['host/gtk_loop.cpp'],
      'cflags': ['<!@(pkg-config --cflags-only-I gtk+-3.0 | sed s/-I/-isystem/g)'],
      'libraries': ['<!@(pkg-config --libs gtk+-3.0)'],
    },
    {
      'target_name': 'kiv_host_utils',
      'sources': ['host/host_utils.cpp'],
      'cflags': ['<!@(pkg-config --cflags-only-I glib-2.0 gio-2.0 | sed s/-I/-isystem/g)'],
      'libraries': ['<!@(pkg-config --libs glib-2.0 gio-2.0)'],
    },
  ],
  'conditions': [
    ['kiv_dev==1', {
      'targets': [
        # What scripts/demo and scripts/test build.
        {
          'target_name': 'demo',
          'type': 'none',
          'dependencies': ['kiv_native', 'kiv_permission', 'kiv_host_loop', 'kiv_host_utils'],
        },
        {
          'target_name': 'tests',
          'type': 'none',
          'dependencies': [
            'demo', 'kiv_internals', 'kiv_faults', 'bench_reference', 'example_button_window',
          ],
        },
        {
          # Internals of the module that no export reaches, for the tests: all of it, registered
          # otherwise.
          'target_name': 'kiv_internals',
          'dependencies': ['kiv_module'],
          'sources': ['test/native/internals.cpp'],
          'defines': ['<@(oldest_releases)'],
          'cflags': ['<!@(pkg-config --cflags-only-I <(module_libs) | sed s/-I/-isystem/g)'],
        },
        {
          'target_name': 'bench_reference',
          'sources': ['bench/native/reference.cpp'],
          'defines': ['<@(oldest_releases)'],
          'cflags': ['<!@(pkg-config --cflags-only-I gtk+-3.0 x11 xi xscrnsaver | sed s/-I/-isystem/g)'],
          'libraries': ['<!@(pkg-config --libs gtk+-3.0 x11 xi xscrnsaver)'],
        },
        {
          'target_name': 'example_button_window',
          'sources': ['examples/selection-button/button_window.cpp'],
          'defines': ['<@(oldest_releases)'],
          'cflags': ['<!@(pkg-config --cflags-only-I gtk+-3.0 | sed s/-I/-isystem/g)'],
          'libraries': ['<!@(pkg-config --libs gtk+-3.0)'],
        },
        {
          'target_name': 'kiv_faults',
          'sources': ['test/native/faults.cpp'],
          'cflags': ['<!@(pkg-config --cflags-only-I gtk+-3.0 | sed s/-I/-isystem/g)'],
          'libraries': ['<!@(pkg-config --libs gtk+-3.0)', '-ldl'],
        },
      ],
    }],
    ['kiv_fuzz==1', {
      'targets': [{
        # The module once more, with libFuzzer, which sees the way that an input takes through it.
        'target_name': 'kiv_fuzz',
        'dependencies': ['upgrade_templates'],
        'sources': ['fuzz/native/fuzz.cpp', '<@(module_sources)'],
        'defines': ['<@(oldest_releases)'],
        'cflags': [
          '<!@(pkg-config --cflags-only-I <(module_libs) | sed s/-I/-isystem/g)',
          '-fno-omit-frame-pointer',
          '-fsanitize=fuzzer-no-link,address,undefined', '-fno-sanitize=vptr,function',
          '-fno-sanitize-recover=all',
        ],
        # libFuzzer's entry points must win over the empty ones in the preloaded sanitizer.
        'ldflags': ['-fsanitize=address,undefined', '-shared-libasan', '-Wl,--exclude-libs,ALL'],
        'libraries': ['<(kiv_fuzz_engine)', '<!@(pkg-config --libs <(module_libs))', '-ldl'],
      }],
    }],
  ],
}
