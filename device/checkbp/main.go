// checkbp loads a build file with Soong's own parser and module types, resolves its dependencies
// for an Arm device of 64 and 32 bits with a VNDK, and prints what would be built and installed.
//
// Usage: checkbp ANDROID_BP PLATFORM_BP MODULE
package main

import (
	"fmt"
	"os"
	"strings"

	"android/soong/android"
	"android/soong/cc"

	"github.com/google/blueprint/proptools"
)

// load parses both files and makes the build steps. The checked file is one of its own, so that
// messages bear its line numbers.
func load(checked, platform []byte, out string) (*android.TestContext, []error) {
	config := cc.TestConfig(out, android.Android, nil, string(platform),
		map[string][]byte{"module/Android.bp": checked})
	config.TestProductVariables.DeviceVndkVersion = proptools.StringPtr("current")
	config.TestProductVariables.Platform_vndk_version = proptools.StringPtr("VER")
	context := cc.CreateTestContext()
	context.Register(config)
	_, errs := context.ParseFileList(".", []string{"Android.bp", "module/Android.bp"})
	if len(errs) == 0 {
		_, errs = context.PrepareBuildActions(config)
	}
	return context, errs
}

func show(context *android.TestContext, name, variant string) {
	module := context.ModuleForTests(name, variant).Module()
	for _, path := range module.FilesToInstall() {
		fmt.Println("installs", strings.SplitAfter(path.String(), "/test_device")[1])
	}
	for _, step := range module.BuildParamsForTests() {
		if step.Args["ccCmd"] != "" {
			fmt.Println("compiles", strings.TrimPrefix(step.Input.String(), "module/"))
		}
		if flags := step.Args["ldFlags"]; flags != "" {
			fmt.Println("links", strings.ReplaceAll(flags, "module/", ""))
		}
	}
}

func main() {
	if len(os.Args) != 4 {
		fmt.Fprintln(os.Stderr, "usage: checkbp ANDROID_BP PLATFORM_BP MODULE")
		os.Exit(2)
	}
	checked, err := os.ReadFile(os.Args[1])
	platform, err2 := os.ReadFile(os.Args[2])
	if err != nil || err2 != nil {
		fmt.Fprintln(os.Stderr, "checkbp:", err, err2)
		os.Exit(2)
	}
	out, err := os.MkdirTemp("", "checkbp")
	if err != nil {
		fmt.Fprintln(os.Stderr, "checkbp:", err)
		os.Exit(2)
	}
	context, errs := load(checked, platform, out)
	os.RemoveAll(out)
	for _, err := range errs {
		fmt.Fprintln(os.Stderr, err)
	}
	if len(errs) > 0 {
		os.Exit(1)
	}
	for _, variant := range context.ModuleVariantsForTests(os.Args[3]) {
		show(context, os.Args[3], variant)
	}
}
